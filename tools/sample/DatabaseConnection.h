// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleDatabaseError.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>

struct sqlite3;
struct sqlite3_stmt;

namespace orvel {

/// A connection to an SQLite file that can be written. Every failure is a `SampleDatabaseError`.
class DatabaseConnection final {
public:
    /// The flags are those of `sqlite3_open_v2()`.
    DatabaseConnection(const std::filesystem::path& path, int flags);

    void execute(const std::string& sql) const;

    /// Keeps the contents of the write-ahead log there, even when the last connection closes.
    void keepLog() const;

    [[nodiscard]] sqlite3* handle() const { return handle_.get(); }

    [[nodiscard]] SampleDatabaseError failure() const;

private:
    struct Deleter {
        void operator()(sqlite3* handle) const;
    };

    std::string path_;
    std::unique_ptr<sqlite3, Deleter> handle_;
};

/// A prepared statement. The connection must outlive it.
class DatabaseStatement final {
public:
    using Value =
        std::variant<std::monostate, std::int64_t, std::string_view, std::span<const std::uint8_t>>;

    DatabaseStatement(const DatabaseConnection& connection, const std::string& sql);

    /// Parameters count from 1. Texts and blobs are not copied: they must outlive `step()`.
    void bind(int parameter, const Value& value);

    /// Whether there is another row.
    bool step();

    void reset();

    [[nodiscard]] std::int64_t integer(int column) const;

    /// For columns without NUL.
    [[nodiscard]] std::string text(int column) const;

private:
    struct Deleter {
        void operator()(sqlite3_stmt* statement) const;
    };

    const DatabaseConnection& connection_;
    std::unique_ptr<sqlite3_stmt, Deleter> statement_;
};

} // namespace orvel
