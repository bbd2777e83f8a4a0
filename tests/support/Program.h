// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <sys/types.h>

#include <chrono>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// A running program whose output goes to files. Killed on destruction.
class Program final {
public:
    struct Options {
        std::vector<std::string> arguments;
        /// Added to this process's environment. An empty value removes a variable.
        std::map<std::string, std::string> environment;
    };

    /// Throws `std::system_error` if the program cannot be started.
    explicit Program(const Options& options);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Returns the exit status, or 128 plus the number of the signal that ended the program.
    int wait();

    /// Like `wait()`, but returns no value if the program still runs after that time.
    std::optional<int> waitFor(std::chrono::milliseconds limit);

    void signal(int number) const;

    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;

private:
    TemporaryDirectory files_;
    pid_t pid_ = -1;
    std::optional<int> status_;
    /// Ready when the program has exited. Set by the first `waitFor()`.
    std::future<void> end_;
};

} // namespace orvel::test
