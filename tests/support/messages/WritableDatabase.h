// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

struct sqlite3;

namespace orvel::test {

/// A connection that may write, in write-ahead-log mode, to a database that is made when missing.
/// Moves nothing from the log into the main file unless told to. Failures are `std::runtime_error`.
class WritableDatabase final {
public:
    explicit WritableDatabase(const std::filesystem::path& path);
    ~WritableDatabase();
    WritableDatabase(const WritableDatabase&) = delete;
    WritableDatabase& operator=(const WritableDatabase&) = delete;

    void execute(const std::string& sql);

    /// Adds rows to the table "message", which is made when missing, in one transaction. Their row
    /// ids go on from the last; the rest is random, so that an index on it changes all over.
    void addMessages(std::int64_t count);

    /// The row id of the last one added.
    [[nodiscard]] std::int64_t lastRowId() const;

private:
    sqlite3* handle_ = nullptr;
};

} // namespace orvel::test
