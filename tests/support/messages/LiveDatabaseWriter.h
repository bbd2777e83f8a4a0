// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace orvel::test {

/// A process that adds messages to a database, one per transaction, and repeatedly restarts the
/// write-ahead log, like the application that owns the database.
class LiveDatabaseWriter final {
public:
    struct Work {
        std::int64_t transactions = 0;
        /// Restarts the log after this number of transactions, ...
        std::int64_t transactionsPerRestart = 1;
        /// ... at most this many times.
        std::int64_t restarts = 0;
        std::chrono::milliseconds pauseAfterTransaction{0};
    };

    /// Creates the database with the messages in its main file. Forks, so this process must have
    /// one thread and no open database.
    LiveDatabaseWriter(const std::filesystem::path& database, std::int64_t messages);

    /// Kills the process.
    ~LiveDatabaseWriter();
    LiveDatabaseWriter(const LiveDatabaseWriter&) = delete;
    LiveDatabaseWriter& operator=(const LiveDatabaseWriter&) = delete;

    /// Starts the work without waiting for it.
    void begin(const Work& work);

    /// Waits until the started work is done.
    void finish();

    /// Waits for another message or the end of the work.
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
