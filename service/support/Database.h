// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace orvel::service {

/// A connection to an SQLite file that only its owner may read. Not thread-safe. Every failure is a
/// `ServiceError`.
class Database final {
public:
    /// Creates the file and its directory if they are missing.
    explicit Database(const std::filesystem::path& file);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void execute(const std::string& sql) const;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::int64_t lastRowID() const;
    /// The number of rows that the latest statement changed.
    [[nodiscard]] std::int64_t changes() const;

private:
    friend class Statement;
    friend class Transaction;

    [[noreturn]] void fail() const;

    std::string path_;
    sqlite3* handle_ = nullptr;
};

/// A prepared statement. The database must outlive it, and bound values must outlive `step()`.
class Statement final {
public:
    Statement(const Database& database, std::string_view sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    template <typename... Values>
    Statement& bind(const Values&... values) {
        reset();
        int index = 0;
        (bindOne(++index, values), ...);
        return *this;
    }

    /// Whether there is another row.
    bool step();

    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] std::string string(int column) const;

private:
    void reset();
    void bindOne(int index, std::int64_t value);
    void bindOne(int index, const std::string& value);

    const Database& database_;
    sqlite3_stmt* statement_ = nullptr;
};

/// Rolled back on destruction unless `commit()` was called.
class Transaction final {
public:
    explicit Transaction(const Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    const Database& database_;
    bool isCommitted_ = false;
};

} // namespace orvel::service
