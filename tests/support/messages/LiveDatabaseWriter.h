// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace orvel::test {

/// A process of its own that adds messages to a database, one a transaction, and restarts its
/// write-ahead log again and again, as the application that owns the database does.
class LiveDatabaseWriter final {
public:
    struct Work {
        std::int64_t transactions = 0;
        /// The log is restarted after every so many transactions, ...
        std::int64_t transactionsPerRestart = 1;
        /// ... but no more often than that.
        std::int64_t restarts = 0;
        std::chrono::milliseconds pauseAfterTransaction{0};
    };

    /// Makes the database with that many messages, all in its main file. Forks, so this process
    /// must have one thread and no database open.
    LiveDatabaseWriter(const std::filesystem::path& database, std::int64_t messages);

    /// Kills the process.
    ~LiveDatabaseWriter();
    LiveDatabaseWriter(const LiveDatabaseWriter&) = delete;
    LiveDatabaseWriter& operator=(const LiveDatabaseWriter&) = delete;

    /// Starts the work and does not wait for it.
    void begin(const Work& work);

    /// Waits for the end of what was begun.
    void finish();

    /// Waits for one more message, or for the end of what was begun.
    void awaitProgress() const;

    /// All messages with row ids from 1 to this one are committed.
    [[nodiscard]] std::int64_t committed() const;

private:
    struct Shared;

    Shared* shared_;
    tavrin::FileDescriptor channel_;
    pid_t process_;
};

} // namespace orvel::test
