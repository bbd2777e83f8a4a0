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

/// One run of another program, with what it prints kept in files. Killed when destroyed.
class Program final {
public:
    struct Options {
        std::vector<std::string> arguments;
        /// Added to this process's environment; an empty value takes a variable out.
        std::map<std::string, std::string> environment;
    };

    /// Throws `std::system_error` when it cannot be started.
    explicit Program(const Options& options);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// The exit status, or 128 and the number of the signal that ended it.
    int wait();

    /// As `wait`, or no value when it still runs after that time.
    std::optional<int> waitFor(std::chrono::milliseconds limit);

    void signal(int number) const;

    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;

private:
    TemporaryDirectory files_;
    pid_t pid_ = -1;
    std::optional<int> status_;
    /// Of the program, as far as somebody has waited for it.
    std::future<void> end_;
};

} // namespace orvel::test
