// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>

namespace orvel::test {

/// A database that another process changes: rows are added, changed and deleted, transactions are
/// rolled back or too large for the cache, readers keep the log in use, and checkpoints of all four
/// kinds, vacuuming, restarts of the log, and other journal modes follow each other.
///
/// Each transaction also updates the table "total" with its own number, and with the number of rows
/// of "entry" and the sum of their versions. So a reader can check that it sees whole transactions.
class ChangingDatabase final {
public:
    /// Creates the database. Forks, so this process must have one thread and no open database.
    ChangingDatabase(const std::filesystem::path& file, unsigned seed);
    /// Kills the process.
    ~ChangingDatabase();
    ChangingDatabase(const ChangingDatabase&) = delete;
    ChangingDatabase& operator=(const ChangingDatabase&) = delete;

    /// Makes so many steps and returns. A transaction has several steps.
    void step(std::int64_t steps);

    /// Makes steps without end. Returns after so many of them.
    void run(std::int64_t steps);

    /// All transactions up to this one are committed.
    [[nodiscard]] std::int64_t committed() const;

private:
    struct Shared;

    void send(std::int64_t steps);

    Shared* shared_;
    tavrin::FileDescriptor channel_;
    pid_t process_;
};

} // namespace orvel::test
