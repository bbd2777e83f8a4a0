// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessagesDatabase.h"

#include "core/messages/AppleEpoch.h"
#include "tools/sample/MessagesSchema.h"
#include "tools/sample/RowInserter.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <regex>
#include <string_view>
#include <system_error>
#include <vector>

namespace orvel::SampleMessagesDatabase {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t chatStyleGroup = 43;
constexpr std::int64_t chatStyleDirect = 45;

constexpr int busyTimeoutMilliseconds = 10'000;

using Value = RowInserter::Value;

void createTables(SQLite::Database& connection, const std::set<std::string>& withoutColumns) {
    for (const std::string_view table : MessagesSchema::tables) {
        connection.exec(std::string(table));
    }
    for (const std::string& column : withoutColumns) {
        const std::size_t dot = column.find('.');
        const bool hasTable = dot != std::string::npos;
        connection.exec(fmt::format(
            "ALTER TABLE {} DROP COLUMN {}",
            hasTable ? column.substr(0, dot) : "message",
            hasTable ? column.substr(dot + 1) : column));
    }
}

bool mentions(std::string_view sql, const std::string& word) {
    return std::regex_search(sql.begin(), sql.end(), std::regex("\\b" + word + "\\b"));
}

void createIndexes(SQLite::Database& connection, const std::set<std::string>& withoutColumns) {
    for (const std::string_view index : MessagesSchema::indexes) {
        const bool lacksColumn =
            std::any_of(withoutColumns.begin(), withoutColumns.end(), [&](const auto& column) {
                return mentions(index, "message") && mentions(index, column);
            });
        if (!lacksColumn) {
            connection.exec(std::string(index));
        }
    }
}

void writeConversations(SQLite::Database& connection, const SampleConversations& conversations) {
    connection.exec("BEGIN");
    RowInserter handles(connection, "handle");
    for (const auto& handle : conversations.handles()) {
        handles.insert({{"id", handle.id}, {"service", handle.service}});
    }
    RowInserter chats(connection, "chat");
    RowInserter memberships(connection, "chat_handle_join");
    std::int64_t chatID = 0;
    for (const auto& chat : conversations.chats()) {
        ++chatID;
        chats.insert({
            {"ROWID", chatID},
            {"guid", chat.guid},
            {"style", chat.isGroup ? chatStyleGroup : chatStyleDirect},
            {"state", std::int64_t{3}},
            {"chat_identifier", chat.identifier},
            {"service_name", chat.service},
            {"room_name", chat.isGroup ? Value(chat.identifier) : Value()},
            {"account_login", SampleConversations::ownAccount},
            {"display_name", chat.displayName.empty() ? Value() : Value(chat.displayName)},
            {"is_filtered", std::int64_t{0}},
        });
        if (!chat.listsParticipants) {
            continue;
        }
        for (const std::size_t participant : chat.participants) {
            memberships.insert(
                {{"chat_id", chatID}, {"handle_id", SampleConversations::rowID(participant)}});
        }
    }
    connection.exec("COMMIT");
}

/// The file and what SQLite may have put beside chat.
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

/// Keeps the contents of the write-ahead log there, even when the last connection closes.
void keepLog(SQLite::Database& connection) {
    connection.exec("PRAGMA wal_autocheckpoint = 0");
    sqlite3_db_config(connection.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

Summary write(const fs::path& path, const Options& options, const WriteProgress& onProgress) {
    const SampleMessages messages(options.content);
    const std::int64_t newest = tavrin::AppleEpoch::rawNanoseconds(options.newest);
    const MessageWriter::Timeline timeline{
        newest - std::chrono::nanoseconds(options.span).count(), newest, options.messageCount};

    SQLite::Database connection(
        path.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, busyTimeoutMilliseconds);
    // No other process uses the new file, and a failure removes it: it needs neither a journal nor
    // syncing.
    connection.exec(
        "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;"
        "PRAGMA cache_size = -262144; PRAGMA mmap_size = 2147418112; PRAGMA temp_store = MEMORY");
    createTables(connection, options.withoutColumns);
    writeConversations(connection, messages.conversations());
    MessageWriter writer(connection, messages, timeline, 1, onProgress);
    const std::int64_t logged =
        options.keepsLog ? std::min<std::int64_t>((options.messageCount + 19) / 20, 500) : 0;
    writer.write(options.messageCount - logged);
    // Indexing a full table is much faster than updating the index for each row.
    createIndexes(connection, options.withoutColumns);

    connection.exec("PRAGMA journal_mode = WAL");
    if (options.keepsLog) {
        keepLog(connection);
    }
    writer.write(logged);

    return summaryOf(messages, options.messageCount, writer.lastRowID());
}

} // namespace

Summary create(const fs::path& path, const Options& options, const WriteProgress& onProgress) {
    if (options.overwrites) {
        removeDatabase(path);
    } else if (fs::exists(fs::symlink_status(path))) {
        throw Error(Error::AlreadyExists{path.string()});
    }
    makeParentFolders(path);
    try {
        return write(path, options, onProgress);
    } catch (const SQLite::Exception& error) {
        removeDatabase(path);
        throw Error(Error::Database{path.string(), error.what()});
    } catch (...) {
        removeDatabase(path);
        throw;
    }
}

Summary
append(const fs::path& path, const AppendOptions& options, const WriteProgress& onProgress) try {
    SQLite::Database connection(path.string(), SQLite::OPEN_READWRITE, busyTimeoutMilliseconds);
    SampleMessages::Options content = options.content;
    std::vector<std::string> chatGUIDs;
    SQLite::Statement chats(connection, "SELECT guid FROM chat ORDER BY ROWID");
    while (chats.executeStep()) {
        chatGUIDs.push_back(chats.getColumn(0));
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
        connection.execAndGet("SELECT max(seq) FROM sqlite_sequence WHERE name = 'message'");
    // Dates in seconds are far smaller than all dates in nanoseconds.
    const std::int64_t previous = connection.execAndGet(fmt::format(
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
    const MessageWriter::Timeline timeline{previous + 1, newest, options.messageCount};

    connection.exec("PRAGMA journal_mode = WAL");
    if (options.keepsLog) {
        keepLog(connection);
    }
    MessageWriter writer(connection, messages, timeline, last + 1, onProgress);
    writer.write(options.messageCount);

    return summaryOf(messages, options.messageCount, writer.lastRowID());
} catch (const SQLite::Exception& error) {
    throw Error(Error::Database{path.string(), error.what()});
}

} // namespace orvel::SampleMessagesDatabase
