// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/linux/FaultAtCall.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// Every call of a program, each failing with each of some errors: one fault for each seed.
class FaultList final {
public:
    struct Row {
        CallKind kind = CallKind::Write;
        /// The largest number of a call. The program must not make more of them, and makes fewer in
        /// some runs, in which the fault then does not happen.
        std::uint64_t calls = 0;
        std::vector<int> errors;
    };

    /// Each call fails once per error and action.
    explicit FaultList(
        std::vector<Row> rows, std::vector<CallFault::Action> actions = {CallFault::Action::Fail});

    [[nodiscard]] std::uint64_t size() const { return size_; }

    /// Seeds from 1 to `size()` give each fault once. Seeds close to each other give different
    /// kinds of calls, so that a few seeds are a sample of all.
    [[nodiscard]] CallFault of(unsigned seed) const;

    /// What is missing in the rows for a program that made these calls. `kinds` is the number of
    /// kinds, from the first, of which no call may be missing.
    [[nodiscard]] std::optional<std::string>
    missing(const CallCounts& counts, std::size_t kinds) const;

private:
    std::vector<Row> rows_;
    std::vector<CallFault::Action> actions_;
    std::uint64_t size_ = 0;
    std::uint64_t step_ = 1;
};

} // namespace orvel::test
