// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace orvel {

/// Finds common parts of a text and a set of values. Compares hashes: if two are equal by chance,
/// a common part is found where there is none.
class PartIndex final {
public:
    using Values = std::unordered_set<std::string_view>;

    /// In bytes.
    static constexpr std::size_t shortestValue = 8;
    static constexpr std::size_t longestPart = 16;

    /// No value may be shorter than `shortestValue`.
    explicit PartIndex(const Values& values);

    /// Whether the text contains a whole value, or `longestPart` successive bytes of one.
    [[nodiscard]] bool hasPartIn(std::string_view text) const;

private:
    [[nodiscard]] std::size_t filterSlot(std::uint64_t hash) const {
        return static_cast<std::size_t>(hash >> (64 - filterBits_));
    }

    int filterBits_;
    /// By the number of bytes.
    std::array<std::vector<std::uint64_t>, longestPart + 1> hashes_;
    /// Rejects most positions without a search.
    std::vector<bool> mayHave_;
};

} // namespace orvel
