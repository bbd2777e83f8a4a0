// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvel::bench {

/// The resource usage of an exited process.
struct ChildUsage {
    int status = 0;
    std::int64_t peakKibibytes = 0;
};

/// A running program with readable standard output. The destructor ends it with SIGTERM.
class ChildProcess final {
public:
    /// Throws `std::system_error` if the program cannot be started.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next line of output, or empty at its end.
    [[nodiscard]] std::string readLine();

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// Waits until the program exits.
    ChildUsage wait();

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

/// Runs the program until it exits. Throws `std::runtime_error` unless its status is 0.
ChildUsage runProgram(const std::vector<std::string>& arguments);

} // namespace orvel::bench
