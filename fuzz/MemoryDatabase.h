// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fuzz/Check.h"

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A database in memory, which further connections of this process open by its path.
class MemoryDatabase final {
public:
    /// The name must be the only one of its kind in the process.
    explicit MemoryDatabase(const std::string& name) : path_("/" + name + "?vfs=memdb") {
        sqlite3* connection = nullptr;
        const int result = sqlite3_open_v2(
            ("file:" + path_).c_str(),
            &connection,
            SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI,
            nullptr);
        connection_.reset(connection);
        check(result == SQLITE_OK);
    }

    /// For `tavrin::SQLiteDatabase`, which adds a query of its own.
    [[nodiscard]] std::string path() const { return path_ + "&unused="; }

    [[nodiscard]] sqlite3* connection() const { return connection_.get(); }

    void execute(const std::string& sql) const {
        check(sqlite3_exec(connection(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
    }

    /// The content of the file that the database would be.
    [[nodiscard]] std::vector<std::uint8_t> bytes() const {
        sqlite3_file* const opened = file();
        sqlite3_int64 size = 0;
        check(opened->pMethods->xFileSize(opened, &size) == SQLITE_OK);
        std::vector<std::uint8_t> content(static_cast<std::size_t>(size));
        check(
            opened->pMethods->xRead(opened, content.data(), static_cast<int>(size), 0) ==
            SQLITE_OK);
        return content;
    }

    /// Replaces the file. No other connection may be open. The bytes need not be a database.
    void replaceBytes(std::span<const std::uint8_t> content) const {
        sqlite3_file* const opened = file();
        const auto size = static_cast<int>(content.size());
        check(opened->pMethods->xWrite(opened, content.data(), size, 0) == SQLITE_OK);
        check(opened->pMethods->xTruncate(opened, size) == SQLITE_OK);
    }

private:
    struct Close {
        void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
    };

    [[nodiscard]] sqlite3_file* file() const {
        sqlite3_file* opened = nullptr;
        check(
            sqlite3_file_control(
                connection(), "main", SQLITE_FCNTL_FILE_POINTER, static_cast<void*>(&opened)) ==
            SQLITE_OK);
        return opened;
    }

    std::string path_;
    std::unique_ptr<sqlite3, Close> connection_;
};

/// The tables that join chats, handles and messages, without constraints, so that any row fits, and
/// the indexes that a reader of messages needs.
inline constexpr const char* joinsAndIndexes = R"(
CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER);
CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER);
CREATE INDEX message_idx_date ON message (date);
CREATE INDEX chat_message_join_idx_message_id_only ON chat_message_join (message_id);
)";
