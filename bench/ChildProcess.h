// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvel::bench {

/// What a process cost that has ended.
struct ChildUsage {
    int status = 0;
    std::int64_t peakKibibytes = 0;
};

/// A program started from here, with its standard output readable. Ended by SIGTERM when destroyed.
class ChildProcess final {
public:
    /// Throws `std::system_error` when it cannot be started.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line of its output; empty at the end.
    [[nodiscard]] std::string readLine();

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// Waits for its end.
    ChildUsage wait();

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

/// Runs the program to its end. Throws `std::runtime_error` when its status is not 0.
ChildUsage runProgram(const std::vector<std::string>& arguments);

} // namespace orvel::bench
