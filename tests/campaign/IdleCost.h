// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace orvel::test {

/// What the idle agent holds and does in an hour.
struct IdleCost {
    /// By name, in the plural. These must not change.
    std::map<std::string, std::size_t> counts;
    std::size_t allocatedBytes = 0;

    /// A sentence for each count that has changed since `before`, and for a growth of the memory
    /// beyond `maximumGrowth`.
    [[nodiscard]] std::vector<std::string>
    changesSince(const IdleCost& before, std::size_t maximumGrowth) const;
    /// For people.
    [[nodiscard]] std::string summary() const;
};

/// The live allocations of this process.
[[nodiscard]] std::size_t allocatedBytes();
/// Without the threads of Qt's pool, in which it draws large areas. The pool starts at most one for
/// each processor, and they end after half a minute without a job.
[[nodiscard]] std::size_t threadCount();
[[nodiscard]] std::size_t descriptorCount();

} // namespace orvel::test
