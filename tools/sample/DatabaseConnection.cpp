// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/DatabaseConnection.h"

#include <sqlite3.h>

namespace orvel {

DatabaseConnection::DatabaseConnection(const std::filesystem::path& path, int flags)
    : path_(path.string()) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) {
        throw failure();
    }
    sqlite3_busy_timeout(handle, 10'000);
}

void DatabaseConnection::execute(const std::string& sql) const {
    if (sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw failure();
    }
}

void DatabaseConnection::keepLog() const {
    execute("PRAGMA wal_autocheckpoint = 0");
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

SampleDatabaseError DatabaseConnection::failure() const {
    return SampleDatabaseError(SampleDatabaseError::Database{path_, sqlite3_errmsg(handle())});
}

void DatabaseConnection::Deleter::operator()(sqlite3* handle) const {
    sqlite3_close(handle);
}

DatabaseStatement::DatabaseStatement(const DatabaseConnection& connection, const std::string& sql)
    : connection_(connection) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection.handle(), sql.c_str(), -1, &statement, nullptr) !=
        SQLITE_OK) {
        throw connection.failure();
    }
    statement_.reset(statement);
}

void DatabaseStatement::bind(int parameter, const Value& value) {
    sqlite3_stmt* statement = statement_.get();
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        sqlite3_bind_int64(statement, parameter, *number);
    } else if (const auto* text = std::get_if<std::string_view>(&value)) {
        sqlite3_bind_text64(
            statement, parameter, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
    } else if (const auto* blob = std::get_if<std::span<const std::uint8_t>>(&value)) {
        // A null pointer would become NULL instead of an empty blob.
        static constexpr std::uint8_t empty = 0;
        sqlite3_bind_blob64(
            statement,
            parameter,
            blob->empty() ? &empty : blob->data(),
            blob->size(),
            SQLITE_STATIC);
    } else {
        sqlite3_bind_null(statement, parameter);
    }
}

bool DatabaseStatement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        throw connection_.failure();
    }
    return result == SQLITE_ROW;
}

void DatabaseStatement::reset() {
    sqlite3_reset(statement_.get());
}

std::int64_t DatabaseStatement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string DatabaseStatement::text(int column) const {
    const void* text = sqlite3_column_text(statement_.get(), column);
    return text == nullptr ? std::string() : static_cast<const char*>(text);
}

void DatabaseStatement::Deleter::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

} // namespace orvel
