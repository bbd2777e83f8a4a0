// SPDX-License-Identifier: Apache-2.0
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include "tools/sample/ReaderSchema.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>
#include <variant>

namespace orvel::test {

namespace {

/// As in a real database, a chat has each message and each handle only once.
constexpr const char* joinsAndIndexes = R"sql(
CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER, UNIQUE (chat_id, handle_id));
CREATE TABLE chat_message_join (
    chat_id INTEGER,
    message_id INTEGER,
    message_date INTEGER DEFAULT 0,
    PRIMARY KEY (chat_id, message_id)
);
CREATE INDEX message_idx_date ON message (date);
CREATE INDEX message_idx_handle ON message (handle_id, date);
CREATE INDEX chat_handle_join_idx_handle_id ON chat_handle_join (handle_id);
CREATE INDEX chat_message_join_idx_chat_id ON chat_message_join (chat_id);
CREATE INDEX chat_message_join_idx_message_id_only ON chat_message_join (message_id);
)sql";

struct Blob {
    std::string_view bytes;
};

/// A value to store. `std::monostate` is NULL.
using Value = std::variant<std::monostate, std::int64_t, std::string_view, Blob>;

template <typename Stored, typename T>
Value orNull(const std::optional<T>& value) {
    return value ? Value(Stored{*value}) : Value();
}

void bind(sqlite3_stmt* statement, int parameter, const Value& value) {
    struct Bind {
        void operator()(std::monostate) const { sqlite3_bind_null(statement, parameter); }
        void operator()(std::int64_t integer) const {
            sqlite3_bind_int64(statement, parameter, integer);
        }
        void operator()(std::string_view text) const {
            sqlite3_bind_text64(
                statement, parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        }
        void operator()(Blob blob) const {
            sqlite3_bind_blob64(
                statement, parameter, blob.bytes.data(), blob.bytes.size(), SQLITE_TRANSIENT);
        }
        sqlite3_stmt* statement;
        int parameter;
    };
    std::visit(Bind{statement, parameter}, value);
}

[[noreturn]] void fail(sqlite3* connection, std::string_view doing) {
    throw std::runtime_error(std::string(doing) + ": " + sqlite3_errmsg(connection));
}

std::int64_t insert(sqlite3* connection, const std::string& sql, const std::vector<Value>& values) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        fail(connection, sql);
    }
    for (int parameter = 1; const Value& value : values) {
        bind(statement, parameter++, value);
    }
    sqlite3_step(statement);
    if (sqlite3_finalize(statement) != SQLITE_OK) {
        fail(connection, sql);
    }
    return sqlite3_last_insert_rowid(connection);
}

} // namespace

void MessagesDatabaseBuilder::ConnectionDeleter::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

MessagesDatabaseBuilder::MessagesDatabaseBuilder(const std::filesystem::path& path)
    : path_(path.string()) {
    if (std::filesystem::exists(path)) {
        throw std::runtime_error(path_ + " is already there.");
    }
    sqlite3* connection = nullptr;
    const int result = sqlite3_open(path_.c_str(), &connection);
    connection_.reset(connection);
    if (result != SQLITE_OK) {
        fail(connection, "open " + path_);
    }
    // Test files need not survive a power failure.
    execute("PRAGMA synchronous = OFF");
    execute(ReaderSchema::tables);
    execute(joinsAndIndexes);
}

MessagesDatabaseBuilder::~MessagesDatabaseBuilder() = default;

std::int64_t MessagesDatabaseBuilder::addHandle(std::string_view id) {
    return insert(
        connection_.get(), "INSERT INTO handle (id, service) VALUES (?, 'iMessage')", {id});
}

std::int64_t MessagesDatabaseBuilder::addChat(const Chat& chat) {
    const std::int64_t rowID = insert(
        connection_.get(),
        "INSERT INTO chat (ROWID, guid, style) VALUES (?, ?, ?)",
        {orNull<std::int64_t>(chat.rowID),
         orNull<std::string_view>(chat.guid),
         orNull<std::int64_t>(chat.style)});
    for (const std::int64_t handle : chat.participants) {
        insert(
            connection_.get(),
            "INSERT INTO chat_handle_join (chat_id, handle_id) VALUES (?, ?)",
            {rowID, handle});
    }
    return rowID;
}

std::int64_t MessagesDatabaseBuilder::addMessage(const Message& message) {
    const std::int64_t rowID = insert(
        connection_.get(),
        "INSERT INTO message (ROWID, guid, text, handle_id, attributedBody, service, date,"
        " is_from_me, cache_has_attachments, item_type, associated_message_type)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        {orNull<std::int64_t>(message.rowID),
         orNull<std::string_view>(message.guid),
         orNull<std::string_view>(message.text),
         message.handle.value_or(0),
         orNull<Blob>(message.attributedBody),
         orNull<std::string_view>(message.service),
         orNull<std::int64_t>(message.date),
         std::int64_t{message.isFromMe},
         std::int64_t{message.hasAttachments},
         message.itemType,
         message.associatedMessageType});
    for (const std::int64_t chat : message.chats) {
        insert(
            connection_.get(),
            "INSERT INTO chat_message_join (chat_id, message_id, message_date) VALUES (?, ?, ?)",
            {chat, rowID, message.date.value_or(0)});
    }
    return rowID;
}

void MessagesDatabaseBuilder::dropColumn(std::string_view table, std::string_view column) {
    execute("ALTER TABLE " + std::string(table) + " DROP COLUMN " + std::string(column));
}

void MessagesDatabaseBuilder::dropTable(std::string_view table) {
    execute("DROP TABLE " + std::string(table));
}

void MessagesDatabaseBuilder::replaceByView(std::string_view table) {
    const std::string name(table);
    execute("ALTER TABLE " + name + " RENAME TO " + name + "_rows");
    execute("CREATE VIEW " + name + " AS SELECT * FROM " + name + "_rows");
}

void MessagesDatabaseBuilder::execute(const std::string& sql) {
    if (sqlite3_exec(connection_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(connection_.get(), sql);
    }
}

} // namespace orvel::test
