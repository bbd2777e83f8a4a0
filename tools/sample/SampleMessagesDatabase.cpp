// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessagesDatabase.h"

#include "core/messages/AppleEpoch.h"
#include "tools/sample/MessagesSchema.h"
#include "tools/sample/SampleRandom.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace orvel::SampleMessagesDatabase {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t chatStyleGroup = 43;
constexpr std::int64_t chatStyleDirect = 45;

constexpr std::int64_t rowsPerTransaction = 50'000;

constexpr std::string_view ownNumber = "+14155550100";
constexpr std::string_view ownAccount = "P:+14155550100";

std::string describe(const Error::Case& error) {
    struct Visitor {
        std::string operator()(const Error::AlreadyExists& it) const {
            return fmt::format("{} already exists.", it.path);
        }
        std::string operator()(const Error::AnotherSample& it) const {
            return fmt::format("{} is not a sample database made with this seed.", it.path);
        }
        std::string operator()(const Error::NotLater& it) const {
            return fmt::format("{} already holds messages from that time or later.", it.path);
        }
        std::string operator()(const Error::File& it) const {
            return fmt::format("Could not write {}: {}.", it.path, it.reason);
        }
        std::string operator()(const Error::Database& it) const {
            return fmt::format("Could not write {}: {}.", it.path, it.message);
        }
    };
    return std::visit(Visitor(), error);
}

class Connection final {
public:
    Connection(const fs::path& path, int flags) : path_(path.string()) {
        sqlite3* handle = nullptr;
        const int result = sqlite3_open_v2(path_.c_str(), &handle, flags, nullptr);
        handle_.reset(handle);
        if (result != SQLITE_OK) {
            throw failure();
        }
        sqlite3_busy_timeout(handle, 10'000);
    }

    void execute(const std::string& sql) const {
        if (sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw failure();
        }
    }

    /// What is in the log stays there, also when this connection is the last to close.
    void keepLog() const {
        execute("PRAGMA wal_autocheckpoint = 0");
        sqlite3_db_config(handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }

    [[nodiscard]] sqlite3* handle() const { return handle_.get(); }

    [[nodiscard]] Error failure() const {
        return Error(Error::Database{path_, sqlite3_errmsg(handle())});
    }

private:
    struct Deleter {
        void operator()(sqlite3* handle) const { sqlite3_close(handle); }
    };

    std::string path_;
    std::unique_ptr<sqlite3, Deleter> handle_;
};

using Value =
    std::variant<std::monostate, std::int64_t, std::string_view, std::span<const std::uint8_t>>;

class Statement final {
public:
    Statement(Connection& connection, const std::string& sql) : connection_(connection) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(connection.handle(), sql.c_str(), -1, &statement, nullptr) !=
            SQLITE_OK) {
            throw connection.failure();
        }
        statement_.reset(statement);
    }

    /// Parameters count from 1. What the value points to must stay until the statement has run.
    void bind(int parameter, const Value& value) {
        sqlite3_stmt* statement = statement_.get();
        if (const auto* number = std::get_if<std::int64_t>(&value)) {
            sqlite3_bind_int64(statement, parameter, *number);
        } else if (const auto* text = std::get_if<std::string_view>(&value)) {
            sqlite3_bind_text64(
                statement, parameter, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
        } else if (const auto* blob = std::get_if<std::span<const std::uint8_t>>(&value)) {
            // A null pointer would become NULL rather than an empty blob.
            static constexpr std::uint8_t none = 0;
            sqlite3_bind_blob64(
                statement,
                parameter,
                blob->empty() ? &none : blob->data(),
                blob->size(),
                SQLITE_STATIC);
        } else {
            sqlite3_bind_null(statement, parameter);
        }
    }

    /// Whether there is a row.
    bool step() {
        const int result = sqlite3_step(statement_.get());
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            throw connection_.failure();
        }
        return result == SQLITE_ROW;
    }

    void reset() { sqlite3_reset(statement_.get()); }

    [[nodiscard]] std::int64_t integer(int column) const {
        return sqlite3_column_int64(statement_.get(), column);
    }

    /// For columns without NUL.
    [[nodiscard]] std::string text(int column) const {
        const void* text = sqlite3_column_text(statement_.get(), column);
        return text == nullptr ? std::string() : static_cast<const char*>(text);
    }

private:
    struct Deleter {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    Connection& connection_;
    std::unique_ptr<sqlite3_stmt, Deleter> statement_;
};

struct Field {
    std::string_view column;
    Value value;
};

/// Inserts rows that all have the same fields; those whose column the table lacks are left out.
class Insertion final {
public:
    Insertion(Connection& connection, std::string_view table)
        : connection_(connection), table_(table) {
        Statement columns(
            connection, fmt::format("SELECT name FROM pragma_table_info('{}')", table));
        while (columns.step()) {
            columns_.insert(columns.text(0));
        }
    }

    void operator()(std::initializer_list<Field> fields) {
        if (!statement_) {
            prepare(fields);
        }
        std::size_t index = 0;
        for (const Field& field : fields) {
            if (const int parameter = parameters_[index++]; parameter != 0) {
                statement_->bind(parameter, field.value);
            }
        }
        statement_->step();
        statement_->reset();
    }

private:
    void prepare(std::initializer_list<Field> fields) {
        std::string names;
        std::string marks;
        int parameter = 0;
        for (const Field& field : fields) {
            if (!columns_.contains(field.column)) {
                parameters_.push_back(0);
                continue;
            }
            parameters_.push_back(++parameter);
            names += (parameter > 1 ? ", " : "") + std::string(field.column);
            marks += parameter > 1 ? ", ?" : "?";
        }
        statement_.emplace(
            connection_, fmt::format("INSERT INTO {} ({}) VALUES ({})", table_, names, marks));
    }

    Connection& connection_;
    std::string table_;
    std::set<std::string, std::less<>> columns_;
    std::optional<Statement> statement_;
    /// For each field its parameter, or 0.
    std::vector<int> parameters_;
};

/// When the messages were sent: evenly spread, with some play, in nanoseconds of the database's own
/// time scale.
class Timeline final {
public:
    Timeline(
        std::int64_t oldest, std::int64_t newest, std::int64_t messageCount, std::uint64_t seed)
        // What is smaller would be read as seconds.
        : oldest_(std::max(oldest, tavrin::AppleEpoch::nanosecondDivide)),
          newest_(newest),
          messageCount_(messageCount),
          distance_(std::max<std::int64_t>(
              1, (newest_ - oldest_) / std::max<std::int64_t>(1, messageCount))),
          seed_(seed) {}

    /// The last of all has the newest time exactly.
    [[nodiscard]] std::int64_t
    time(std::int64_t ordinal, const SampleMessages::Message& message) const {
        const std::int64_t later = messageCount_ - 1 - ordinal;
        if (later == 0) {
            return newest_;
        }
        constexpr std::uint64_t stream = 4ULL << 40U;
        SampleRandom random(seed_, stream + static_cast<std::uint64_t>(message.rowID));
        const auto play =
            static_cast<std::int64_t>(random.below(static_cast<std::size_t>(distance_)));
        return std::max<std::int64_t>(
            oldest_, newest_ - distance_ * later - play - message.delay.count());
    }

private:
    std::int64_t oldest_;
    std::int64_t newest_;
    std::int64_t messageCount_;
    std::int64_t distance_;
    std::uint64_t seed_;
};

std::optional<std::int64_t> stored(std::int64_t time, SampleMessages::DateForm form) {
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    switch (form) {
    case SampleMessages::DateForm::Nanoseconds:
        return time;
    case SampleMessages::DateForm::Seconds:
        return time / nanosecondsPerSecond;
    case SampleMessages::DateForm::Missing:
        return std::nullopt;
    case SampleMessages::DateForm::Zero:
        return 0;
    case SampleMessages::DateForm::Negative:
        return -time;
    }
    return std::nullopt;
}

Value orNull(const std::string& text) {
    return text.empty() ? Value() : Value(std::string_view(text));
}

Value orNull(const std::optional<std::string>& text) {
    return text ? Value(std::string_view(*text)) : Value();
}

Value orNull(const std::optional<Blob>& blob) {
    return blob ? Value(std::span<const std::uint8_t>(*blob)) : Value();
}

Value orNull(std::optional<std::int64_t> number) {
    return number ? Value(*number) : Value();
}

std::int64_t rowIDOf(std::size_t index) {
    return static_cast<std::int64_t>(index) + 1;
}

/// Writes messages one after the other, in transactions of a bounded size.
class MessageWriter final {
public:
    MessageWriter(
        Connection& connection,
        const SampleMessages& messages,
        const Timeline& timeline,
        std::int64_t firstRowID,
        const Progress& onProgress)
        : connection_(connection),
          messages_(messages),
          timeline_(timeline),
          nextRowID_(firstRowID),
          onProgress_(onProgress),
          message_(connection, "message"),
          membership_(connection, "chat_message_join") {}

    void write(std::int64_t count) {
        const std::int64_t end = written_ + count;
        while (written_ < end) {
            connection_.execute("BEGIN IMMEDIATE");
            const std::int64_t chunkEnd = std::min(end, written_ + rowsPerTransaction);
            while (written_ < chunkEnd) {
                if (const auto message = messages_.message(nextRowID_++)) {
                    insert(*message);
                    ++written_;
                }
            }
            connection_.execute("COMMIT");
            if (onProgress_) {
                onProgress_(written_);
            }
        }
    }

    [[nodiscard]] std::int64_t lastRowID() const { return nextRowID_ - 1; }

private:
    void insert(const SampleMessages::Message& message) {
        const auto& chats = messages_.conversations().chats();
        const auto* group = message.chats.empty() || !chats[message.chats.front()].isGroup
                                ? nullptr
                                : &chats[message.chats.front()];
        const std::int64_t time = timeline_.time(written_, message);
        const Value date = orNull(stored(time, message.dateForm));
        const Value never = std::int64_t{0};
        const Value yes = std::int64_t{1};
        const Value byMe = std::int64_t{message.isFromMe};
        const Value byOther = std::int64_t{!message.isFromMe};
        message_({
            {"ROWID", message.rowID},
            {"guid", message.guid},
            {"text", orNull(message.text)},
            {"handle_id", message.handleID},
            {"attributedBody", orNull(message.attributedBody)},
            {"version", std::int64_t{10}},
            {"service", message.service},
            {"account", ownAccount},
            {"date", date},
            {"date_read", message.isFromMe ? never : date},
            {"date_delivered", message.isFromMe ? date : never},
            {"is_delivered", yes},
            {"is_finished", yes},
            {"is_from_me", byMe},
            {"is_read", byOther},
            {"is_sent", byMe},
            {"cache_has_attachments", std::int64_t{message.hasAttachments}},
            {"cache_roomnames", group == nullptr ? Value() : Value(group->identifier)},
            {"item_type", std::int64_t{message.itemType}},
            {"group_title", orNull(message.groupTitle)},
            {"group_action_type", std::int64_t{message.groupActionType}},
            {"associated_message_guid", orNull(message.associatedGUID)},
            {"associated_message_type", std::int64_t{message.associatedType}},
            {"associated_message_emoji", orNull(message.associatedEmoji)},
            {"destination_caller_id", ownNumber},
            {"thread_originator_guid", orNull(message.threadOriginatorGUID)},
            {"date_edited", message.isEdited ? date : never},
            {"date_retracted", message.isRetracted ? date : never},
            {"part_count", std::int64_t{message.partCount}},
        });
        for (const std::size_t chat : message.chats) {
            membership_({
                {"chat_id", rowIDOf(chat)},
                {"message_id", message.rowID},
                {"message_date", date},
            });
        }
    }

    Connection& connection_;
    const SampleMessages& messages_;
    const Timeline& timeline_;
    std::int64_t nextRowID_;
    const Progress& onProgress_;
    Insertion message_;
    Insertion membership_;
    std::int64_t written_ = 0;
};

void createTables(Connection& connection, const std::set<std::string>& withoutColumns) {
    for (const std::string_view table : MessagesSchema::tables) {
        connection.execute(std::string(table));
    }
    for (const std::string& column : withoutColumns) {
        const std::size_t dot = column.find('.');
        const bool hasTable = dot != std::string::npos;
        connection.execute(fmt::format(
            "ALTER TABLE {} DROP COLUMN {}",
            hasTable ? column.substr(0, dot) : "message",
            hasTable ? column.substr(dot + 1) : column));
    }
}

/// Whether the statement contains the column's name as a word.
bool mentions(std::string_view sql, std::string_view column) {
    const auto isNamePart = [&](std::size_t position) {
        return position < sql.size() &&
               (std::isalnum(static_cast<unsigned char>(sql[position])) != 0 ||
                sql[position] == '_');
    };
    for (std::size_t at = sql.find(column); at != std::string_view::npos;
         at = sql.find(column, at + 1)) {
        if (!isNamePart(at - 1) && !isNamePart(at + column.size())) {
            return true;
        }
    }
    return false;
}

void createIndexes(Connection& connection, const std::set<std::string>& withoutColumns) {
    for (const std::string_view index : MessagesSchema::indexes) {
        const bool lacksColumn =
            std::any_of(withoutColumns.begin(), withoutColumns.end(), [&](const auto& column) {
                return mentions(index, "message") && mentions(index, column);
            });
        if (!lacksColumn) {
            connection.execute(std::string(index));
        }
    }
}

void writeConversations(Connection& connection, const SampleConversations& conversations) {
    connection.execute("BEGIN");
    Insertion handle(connection, "handle");
    for (const auto& it : conversations.handles()) {
        handle({{"id", it.id}, {"service", it.service}});
    }
    Insertion chat(connection, "chat");
    Insertion membership(connection, "chat_handle_join");
    std::int64_t chatID = 0;
    for (const auto& it : conversations.chats()) {
        ++chatID;
        chat({
            {"ROWID", chatID},
            {"guid", it.guid},
            {"style", it.isGroup ? chatStyleGroup : chatStyleDirect},
            {"state", std::int64_t{3}},
            {"chat_identifier", it.identifier},
            {"service_name", it.service},
            {"room_name", it.isGroup ? Value(it.identifier) : Value()},
            {"account_login", ownAccount},
            {"display_name", orNull(it.displayName)},
            {"is_filtered", std::int64_t{0}},
        });
        if (!it.listsParticipants) {
            continue;
        }
        for (const std::size_t participant : it.participants) {
            membership({{"chat_id", chatID}, {"handle_id", rowIDOf(participant)}});
        }
    }
    connection.execute("COMMIT");
}

/// The file and what SQLite may have put beside it.
void removeDatabase(const fs::path& path) {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        fs::path file = path;
        file += suffix;
        std::error_code error;
        fs::remove(file, error);
        if (error) {
            throw Error(Error::File{file.string(), error.message()});
        }
    }
}

void makeParentFolders(const fs::path& path) {
    std::error_code error;
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path(), error);
    }
    if (error) {
        throw Error(Error::File{path.parent_path().string(), error.message()});
    }
}

Summary summaryOf(const SampleMessages& messages, std::int64_t count, std::int64_t lastRowID) {
    return {
        .messageCount = count,
        .lastRowID = lastRowID,
        .chatCount = messages.conversations().chats().size(),
        .handleCount = messages.conversations().handles().size()};
}

std::int64_t number(Connection& connection, const std::string& sql) {
    Statement statement(connection, sql);
    return statement.step() ? statement.integer(0) : 0;
}

Summary write(const fs::path& path, const Options& options, const Progress& onProgress) {
    const SampleMessages messages(options.content);
    const std::int64_t newest = tavrin::AppleEpoch::rawNanoseconds(options.newest);
    const Timeline timeline(
        newest - std::chrono::nanoseconds(options.span).count(),
        newest,
        options.messageCount,
        options.content.seed);

    Connection connection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    // Nobody else has the file yet, and a failure removes it: no journal, no waiting for the disk.
    connection.execute(
        "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;"
        "PRAGMA cache_size = -262144; PRAGMA mmap_size = 2147418112; PRAGMA temp_store = MEMORY");
    createTables(connection, options.withoutColumns);
    writeConversations(connection, messages.conversations());
    MessageWriter writer(connection, messages, timeline, 1, onProgress);
    const std::int64_t logged =
        options.keepsLog ? std::min<std::int64_t>((options.messageCount + 19) / 20, 500) : 0;
    writer.write(options.messageCount - logged);
    // Indexes over finished tables are built by sorting, much faster than row by row.
    createIndexes(connection, options.withoutColumns);

    connection.execute("PRAGMA journal_mode = WAL");
    if (options.keepsLog) {
        connection.keepLog();
    }
    writer.write(logged);

    return summaryOf(messages, options.messageCount, writer.lastRowID());
}

} // namespace

Error::Error(Case error) : error_(std::move(error)), description_(describe(error_)) {}

Summary create(const fs::path& path, const Options& options, const Progress& onProgress) {
    if (options.overwrites) {
        removeDatabase(path);
    } else if (fs::exists(fs::symlink_status(path))) {
        throw Error(Error::AlreadyExists{path.string()});
    }
    makeParentFolders(path);
    try {
        return write(path, options, onProgress);
    } catch (...) {
        removeDatabase(path);
        throw;
    }
}

Summary append(const fs::path& path, const AppendOptions& options, const Progress& onProgress) {
    Connection connection(path, SQLITE_OPEN_READWRITE);
    SampleMessages::Options content = options.content;
    std::vector<std::string> chatGUIDs;
    Statement chats(connection, "SELECT guid FROM chat ORDER BY ROWID");
    while (chats.step()) {
        chatGUIDs.push_back(chats.text(0));
    }
    content.chatCount = static_cast<int>(chatGUIDs.size());
    const SampleMessages messages(content);
    if (!std::equal(
            chatGUIDs.begin(),
            chatGUIDs.end(),
            messages.conversations().chats().begin(),
            messages.conversations().chats().end(),
            [](const std::string& guid, const auto& chat) { return guid == chat.guid; })) {
        throw Error(Error::AnotherSample{path.string()});
    }

    const std::int64_t last =
        number(connection, "SELECT max(seq) FROM sqlite_sequence WHERE name = 'message'");
    // Dates in seconds are far below all dates in nanoseconds.
    const std::int64_t previous = number(
        connection,
        fmt::format(
            "SELECT max(CASE WHEN date < {} THEN date * 1000000000 ELSE date END) FROM message",
            tavrin::AppleEpoch::nanosecondDivide));
    const std::int64_t newest =
        options.newest
            ? tavrin::AppleEpoch::rawNanoseconds(*options.newest)
            : previous +
                  std::chrono::nanoseconds(std::chrono::minutes(options.messageCount)).count();
    if (newest <= previous) {
        throw Error(Error::NotLater{path.string()});
    }
    const Timeline timeline(previous + 1, newest, options.messageCount, content.seed);

    connection.execute("PRAGMA journal_mode = WAL");
    if (options.keepsLog) {
        connection.keepLog();
    }
    MessageWriter writer(connection, messages, timeline, last + 1, onProgress);
    writer.write(options.messageCount);

    return summaryOf(messages, options.messageCount, writer.lastRowID());
}

} // namespace orvel::SampleMessagesDatabase
