// SPDX-License-Identifier: Apache-2.0
#include "tests/support/messages/WritableDatabase.h"

#include <sqlite3.h>

#include <stdexcept>

namespace orvel::test {

WritableDatabase::WritableDatabase(const std::filesystem::path& path) {
    if (sqlite3_open(path.c_str(), &handle_) != SQLITE_OK) {
        sqlite3_close(handle_);
        throw std::runtime_error("cannot open " + path.string());
    }
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF; PRAGMA wal_autocheckpoint = 0;"
            "CREATE TABLE IF NOT EXISTS message "
            "(ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, text TEXT)");
}

WritableDatabase::~WritableDatabase() {
    sqlite3_close(handle_);
}

void WritableDatabase::execute(const std::string& sql) {
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(handle_));
    }
}

void WritableDatabase::addMessages(std::int64_t count) {
    execute(
        "INSERT INTO message (guid, text) "
        "WITH RECURSIVE number (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM number LIMIT " +
        std::to_string(count) + ") SELECT hex(randomblob(16)), hex(randomblob(150)) FROM number");
}

std::int64_t WritableDatabase::lastRowId() const {
    return sqlite3_last_insert_rowid(handle_);
}

} // namespace orvel::test
