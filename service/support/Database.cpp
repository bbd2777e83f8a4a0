// SPDX-License-Identifier: Apache-2.0
#include "service/support/Database.h"

#include "service/support/PrivateFile.h"
#include "service/support/ServiceError.h"

#include <sqlite3.h>

#include <memory>
#include <utility>

namespace orvel::service {

namespace {

[[noreturn]] void fail(sqlite3* handle, const std::string& path) {
    throw ServiceError(ServiceError::Store{path, sqlite3_errmsg(handle)});
}

} // namespace

Database::Database(const std::filesystem::path& file) : path_(file.string()) {
    makePrivateDirectory(std::filesystem::absolute(file).parent_path());
    // SQLite would create a file that everyone can read. Its journals copy the mode of the file.
    static_cast<void>(PrivateFile(file, PrivateFile::Mode::Append));
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &handle, flags, nullptr);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> closing(handle, sqlite3_close);
    if (result != SQLITE_OK) {
        service::fail(handle, path_);
    }
    // Another program may be reading the file.
    sqlite3_busy_timeout(handle, 5000);
    handle_ = closing.release();
}

Database::~Database() {
    sqlite3_close(handle_);
}

void Database::execute(const std::string& sql) const {
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

std::int64_t Database::lastRowID() const {
    return sqlite3_last_insert_rowid(handle_);
}

std::int64_t Database::changes() const {
    return sqlite3_changes(handle_);
}

void Database::fail() const {
    service::fail(handle_, path_);
}

Statement::Statement(const Database& database, std::string_view sql) : database_(database) {
    const auto size = static_cast<int>(sql.size());
    if (sqlite3_prepare_v2(database.handle_, sql.data(), size, &statement_, nullptr) != SQLITE_OK) {
        database.fail();
    }
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

bool Statement::step() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        database_.fail();
    }
    return result == SQLITE_ROW;
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string Statement::string(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return bytes == nullptr ? std::string() : std::string(bytes, size);
}

void Statement::reset() {
    sqlite3_reset(statement_);
}

void Statement::bindOne(int index, std::int64_t value) {
    if (sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) {
        database_.fail();
    }
}

void Statement::bindOne(int index, const std::string& value) {
    if (sqlite3_bind_text64(
            statement_, index, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8) !=
        SQLITE_OK) {
        database_.fail();
    }
}

Transaction::Transaction(const Database& database) : database_(database) {
    database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!isCommitted_) {
        sqlite3_exec(database_.handle_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    isCommitted_ = true;
}

} // namespace orvel::service
