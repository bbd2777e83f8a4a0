// SPDX-License-Identifier: Apache-2.0
#include "core/messages/SQLiteDatabase.h"

#include "core/Text.h"

#include <sqlite3.h>

#include <array>
#include <utility>

namespace tavrin {

namespace {

/// SQLite's messages may quote names from the database.
std::string describe(const SQLiteError::Case& error) {
    struct Describe {
        std::string operator()(const SQLiteError::Open& open) const {
            return "sqlite open failed (" + open.path + "): " + shownText(open.message);
        }
        std::string operator()(const SQLiteError::Prepare& prepare) const {
            return "sqlite prepare failed: " + shownText(prepare.message) + " — " + prepare.sql;
        }
        std::string operator()(const SQLiteError::Step& step) const {
            return "sqlite step failed: " + shownText(step.message);
        }
    };
    return std::visit(Describe(), error);
}

/// Between two calls of `countWork`.
constexpr int instructionsPerCall = 10'000;

/// Most bytes of one value or row. SQLite's own limit is 1 GB.
constexpr int mostBytesOfValue = 64 << 20;

/// The views and generated columns of a file from outside must not use functions and virtual tables
/// that read or change anything beyond it.
void distrustSchema(sqlite3* connection) {
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, mostBytesOfValue);
}

void bind(sqlite3_stmt* statement, int parameter, const SQLiteDatabase::Binding& binding) {
    if (const auto* integer = std::get_if<std::int64_t>(&binding.value)) {
        sqlite3_bind_int64(statement, parameter, *integer);
    } else {
        const std::string& text = std::get<std::string>(binding.value);
        sqlite3_bind_text(statement, parameter, text.c_str(), -1, SQLITE_TRANSIENT);
    }
}

} // namespace

SQLiteError::SQLiteError(Case error) : error_(std::move(error)), description_(describe(error_)) {}

std::int64_t SQLiteDatabase::Row::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::optional<std::string> SQLiteDatabase::Row::string(int column) const {
    // Get the text first: that may convert the value and change its number of bytes.
    const unsigned char* text = sqlite3_column_text(statement_, column);
    if (text == nullptr) {
        return std::nullopt;
    }
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return repairedUTF8({reinterpret_cast<const char*>(text), size});
}

std::optional<std::span<const std::uint8_t>> SQLiteDatabase::Row::blob(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    if (bytes == nullptr) {
        return std::nullopt;
    }
    return std::span(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(size));
}

bool SQLiteDatabase::Row::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

void SQLiteDatabase::ConnectionDeleter::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

void SQLiteDatabase::StatementDeleter::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

SQLiteDatabase::SQLiteDatabase(const std::string& readOnlyPath) {
    const std::string uri = "file:" + readOnlyPath + "?mode=ro";
    sqlite3* connection = nullptr;
    const int result =
        sqlite3_open_v2(uri.c_str(), &connection, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    // A connection that failed to open must also be closed.
    connection_.reset(connection);
    if (result != SQLITE_OK || connection == nullptr) {
        throw SQLiteError(SQLiteError::Open{
            readOnlyPath, connection == nullptr ? "unknown error" : sqlite3_errmsg(connection)});
    }
    distrustSchema(connection);
}

SQLiteDatabase::~SQLiteDatabase() = default;

SQLiteDatabase::Statement SQLiteDatabase::prepare(const std::string& sql) {
    sqlite3_stmt* prepared = nullptr;
    const int result = sqlite3_prepare_v2(connection_.get(), sql.c_str(), -1, &prepared, nullptr);
    Statement statement(prepared);
    if (result != SQLITE_OK || statement == nullptr) {
        throw SQLiteError(SQLiteError::Prepare{sql, sqlite3_errmsg(connection_.get())});
    }
    return statement;
}

int SQLiteDatabase::countWork(void* database) {
    auto& self = *static_cast<SQLiteDatabase*>(database);
    ++self.calls_;
    return self.calls_ > self.mostCalls_ ? 1 : 0;
}

void SQLiteDatabase::limitWork(std::int64_t instructions) {
    mostCalls_ = instructions / instructionsPerCall;
    sqlite3_progress_handler(connection_.get(), instructionsPerCall, countWork, this);
}

void SQLiteDatabase::observe(const CancellationToken& cancellation) {
    cancellation_ = cancellation;
    interruption_ =
        cancellation.onCancel([connection = connection_.get()] { sqlite3_interrupt(connection); });
}

void SQLiteDatabase::query(
    const std::string& sql,
    std::span<const Binding> bindings,
    const std::function<void(const Row&)>& onRow) {
    cancellation_.throwIfCancelled();
    // Remove the statement from the cache while it runs, because the callback may run the same
    // text. A failed statement is not put back.
    Statement& idle = idleStatements_[sql];
    Statement statement = idle != nullptr ? std::move(idle) : prepare(sql);
    for (int parameter = 1; const Binding& binding : bindings) {
        bind(statement.get(), parameter++, binding);
    }
    calls_ = 0;
    const Row row(statement.get());
    int result = sqlite3_step(statement.get());
    for (; result == SQLITE_ROW; result = sqlite3_step(statement.get())) {
        onRow(row);
    }
    if (result == SQLITE_INTERRUPT) {
        cancellation_.throwIfCancelled();
    }
    if (result != SQLITE_DONE) {
        throw SQLiteError(SQLiteError::Step{sqlite3_errmsg(connection_.get())});
    }
    sqlite3_reset(statement.get());
    sqlite3_clear_bindings(statement.get());
    idle = std::move(statement);
}

bool SQLiteDatabase::tableExists(const std::string& name) {
    bool exists = false;
    query(
        "SELECT 1 FROM sqlite_master WHERE type IN ('table','view') AND name = ? LIMIT 1",
        std::array{Binding::text(name)},
        [&exists](const Row&) { exists = true; });
    return exists;
}

bool SQLiteDatabase::columnExists(std::string_view column, const std::string& table) {
    bool exists = false;
    query("PRAGMA table_info(" + table + ")", {}, [&](const Row& row) {
        exists = exists || row.string(1) == column;
    });
    return exists;
}

} // namespace tavrin
