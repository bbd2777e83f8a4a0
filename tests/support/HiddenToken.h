// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace orvel::test {

/// A random token that is nowhere in this process's memory except where the code under test keeps
/// it: this object holds it only in disguise.
class HiddenToken final {
public:
    HiddenToken();

    /// 64 letters. Whoever asks overwrites them.
    [[nodiscard]] std::string text() const;

    /// How many copies there are in memory that can be written, given back or not. What the
    /// allocator writes at the beginning of memory given back does not hide a copy.
    [[nodiscard]] std::size_t copiesInMemory() const;

private:
    std::string disguised_;
};

} // namespace orvel::test
