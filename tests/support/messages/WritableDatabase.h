// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

struct sqlite3;

namespace orvel::test {

/// A writable connection in write-ahead-log mode. Creates a missing database. Disables automatic
/// checkpoints. Every failure throws `std::runtime_error`.
class WritableDatabase final {
public:
    explicit WritableDatabase(const std::filesystem::path& path);
    ~WritableDatabase();
    WritableDatabase(const WritableDatabase&) = delete;
    WritableDatabase& operator=(const WritableDatabase&) = delete;

    void execute(const std::string& sql);

    /// Adds rows to the table "message" in one transaction, and creates the table if it is missing.
    /// Row ids continue from the last one. The other column is random, so that changes spread over
    /// its index.
    void addMessages(std::int64_t count);

    /// The row id of the last added row.
    [[nodiscard]] std::int64_t lastRowId() const;

private:
    sqlite3* handle_ = nullptr;
};

} // namespace orvel::test
