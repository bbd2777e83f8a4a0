// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace tavrin {

/// An SQLite error. `what()` names the step that failed.
class SQLiteError final : public std::exception {
public:
    struct Open {
        std::string path;
        std::string message;
    };
    struct Prepare {
        std::string sql;
        std::string message;
    };
    struct Step {
        std::string message;
    };
    using Case = std::variant<Open, Prepare, Step>;

    explicit SQLiteError(Case error);

    [[nodiscard]] const Case& error() const { return error_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    Case error_;
    std::string description_;
};

/// A read-only connection to one database file.
///
/// Not thread-safe. Every failure is a `SQLiteError`. Prepared statements are cached by their text,
/// so constant texts are faster.
class SQLiteDatabase final {
public:
    /// A value for one `?` of a statement.
    struct Binding {
        using Value = std::variant<std::string, std::int64_t>;

        static Binding text(std::string value) { return {Value(std::move(value))}; }
        static Binding integer(std::int64_t value) { return {Value(value)}; }

        Value value;
    };

    /// The current row of a running statement. Valid in the row callback only. Columns are
    /// numbered from 0.
    class Row final {
    public:
        explicit Row(sqlite3_stmt* statement) : statement_(statement) {}

        /// NULL reads as 0.
        [[nodiscard]] std::int64_t integer(int column) const;

        /// NULL reads as no value. Ill-formed UTF-8 is repaired with U+FFFD. Embedded NULs are
        /// kept.
        [[nodiscard]] std::optional<std::string> string(int column) const;

        /// NULL and an empty blob read as no value. The bytes belong to SQLite and are valid until
        /// the next row.
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> blob(int column) const;

        [[nodiscard]] bool isNull(int column) const;

    private:
        sqlite3_stmt* statement_;
    };

    /// Opens the existing file at the path, which becomes part of a "file:" URI without escaping.
    explicit SQLiteDatabase(const std::string& readOnlyPath);
    ~SQLiteDatabase();
    SQLiteDatabase(const SQLiteDatabase&) = delete;
    SQLiteDatabase& operator=(const SQLiteDatabase&) = delete;

    /// From now on, a statement ends with an error after about so many instructions of SQLite's
    /// virtual machine.
    void limitWork(std::int64_t instructions);

    /// From now on, cancelling the token also ends a running `query`, which throws `TaskCancelled`.
    void observe(const CancellationToken& cancellation);

    /// Runs one statement to its end and calls `onRow` for each row. Exceptions of `onRow` pass
    /// through unchanged.
    void query(
        const std::string& sql,
        std::span<const Binding> bindings,
        const std::function<void(const Row&)>& onRow);

    /// Whether a table or view of that name exists.
    [[nodiscard]] bool tableExists(const std::string& name);

    /// Whether the table has a column with exactly this name. False for a missing table. The table
    /// name is inserted into the statement unescaped, so it must be a constant of ours.
    [[nodiscard]] bool columnExists(std::string_view column, const std::string& table);

private:
    struct ConnectionDeleter {
        void operator()(sqlite3* connection) const;
    };
    struct StatementDeleter {
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

    Statement prepare(const std::string& sql);
    /// SQLite calls it while a statement runs. A result other than 0 ends the statement.
    static int countWork(void* database);

    std::unique_ptr<sqlite3, ConnectionDeleter> connection_;
    /// Cached statements by text. A statement is removed while it runs.
    std::unordered_map<std::string, Statement> idleStatements_;
    /// Calls of `countWork` that a statement may cause, and has caused.
    std::int64_t mostCalls_ = 0;
    std::int64_t calls_ = 0;
    CancellationToken cancellation_;
    /// Destroyed first, because the callback uses the connection.
    CancellationToken::Registration interruption_;
};

} // namespace tavrin
