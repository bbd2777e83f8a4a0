// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/ServiceError.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

namespace orvel::service {

/// A connection to an SQLite file that only its owner may read. Thread-safe. Every failure is a
/// `ServiceError`.
class Database final {
public:
    /// Creates the file and its directory if they are missing.
    explicit Database(const std::filesystem::path& file);

    /// Calls `action` with the connection, one caller at a time, and returns its result.
    template <typename Action>
    auto use(Action action) const {
        const std::lock_guard lock(mutex_);
        return translated([&] { return action(*connection_); });
    }

    /// The same in a transaction, which is rolled back if the action throws.
    template <typename Action>
    auto change(Action action) const {
        return use([&](SQLite::Database& connection) {
            SQLite::Transaction transaction(connection, SQLite::TransactionBehavior::IMMEDIATE);
            auto result = action(connection);
            transaction.commit();
            return result;
        });
    }

private:
    template <typename Action>
    auto translated(Action action) const {
        try {
            return action();
        } catch (const SQLite::Exception& error) {
            throw ServiceError(ServiceError::Store{path_, error.what()});
        }
    }

    std::string path_;
    mutable std::mutex mutex_;
    std::unique_ptr<SQLite::Database> connection_;
};

/// Runs one statement that returns no rows. Returns the number of rows that it changed.
template <typename... Values>
int run(const SQLite::Database& connection, const char* sql, const Values&... values) {
    SQLite::Statement statement(connection, sql);
    SQLite::bind(statement, values...);
    return statement.exec();
}

} // namespace orvel::service
