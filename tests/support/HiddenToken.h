// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace orvel::test {

/// A random token to search for in this process's memory. This object stores it encoded, so only
/// copies made by the code under test are found.
class HiddenToken final {
public:
    /// Copies of the token's two parts before and from this position do not count.
    static constexpr std::size_t split = 44;

    HiddenToken();

    /// 64 letters. The caller must overwrite the text after use.
    [[nodiscard]] std::string text() const;

    /// The number of copies in writable memory, including freed memory. The allocator overwrites
    /// the first bytes of freed memory; the search ignores those.
    [[nodiscard]] std::size_t copiesInMemory() const;

private:
    std::string disguised_;
};

} // namespace orvel::test
