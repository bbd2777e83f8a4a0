// SPDX-License-Identifier: Apache-2.0
#pragma once

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

/// A failure of SQLite; `what()` names the step that failed.
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
/// Used by one thread at a time. Everything fails with `SQLiteError`. Prepared statements are kept
/// and used again when the same text is run twice, so a text must stay the same from batch to batch
/// to profit.
class SQLiteDatabase final {
public:
    /// A value for one `?` of a statement.
    struct Binding {
        using Value = std::variant<std::string, std::int64_t>;

        static Binding text(std::string value) { return {Value(std::move(value))}; }
        static Binding integer(std::int64_t value) { return {Value(value)}; }

        Value value;
    };

    /// The current row of a running statement; valid only inside the row callback.
    /// Columns count from 0.
    class Row final {
    public:
        explicit Row(sqlite3_stmt* statement) : statement_(statement) {}

        /// NULL reads as 0.
        [[nodiscard]] std::int64_t integer(int column) const;

        /// NULL reads as no value. Ill-formed UTF-8 is repaired with U+FFFD; an embedded NUL is
        /// kept.
        [[nodiscard]] std::optional<std::string> string(int column) const;

        /// NULL and an empty blob read as no value. The bytes are SQLite's own: they are gone with
        /// the row.
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> blob(int column) const;

        [[nodiscard]] bool isNull(int column) const;

    private:
        sqlite3_stmt* statement_;
    };

    /// Opens the file at the path, which is put into the "file:" URI as it stands; it must exist.
    explicit SQLiteDatabase(const std::string& readOnlyPath);
    ~SQLiteDatabase();
    SQLiteDatabase(const SQLiteDatabase&) = delete;
    SQLiteDatabase& operator=(const SQLiteDatabase&) = delete;

    /// Runs one statement to its end and calls `onRow` for each row. What `onRow` throws passes
    /// through unchanged.
    void query(
        const std::string& sql,
        std::span<const Binding> bindings,
        const std::function<void(const Row&)>& onRow);

    /// Whether a table or view of that name exists.
    [[nodiscard]] bool tableExists(const std::string& name);

    /// Whether the table has the column, by exact spelling; false when there is no such table. The
    /// table name becomes part of the statement as it stands, so it must be a fixed one of ours.
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

    std::unique_ptr<sqlite3, ConnectionDeleter> connection_;
    /// By text; empty while a statement runs.
    std::unordered_map<std::string, Statement> idleStatements_;
};

} // namespace tavrin
