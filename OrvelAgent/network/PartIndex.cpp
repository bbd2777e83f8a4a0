// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/PartIndex.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace orvel {

namespace {

/// Several slots for each hash, so that the filter rejects most positions.
int filterBitsFor(const PartIndex::Values& values) {
    constexpr int leastBits = 10;
    constexpr int mostBits = 22;
    std::size_t size = 0;
    for (const std::string_view value : values) {
        size += value.size();
    }
    return std::clamp(static_cast<int>(std::bit_width(size)) + 4, leastBits, mostBits);
}

/// Of 8 to 16 bytes.
std::uint64_t hashOf(std::string_view text) {
    constexpr std::uint64_t first = 0x9E3779B97F4A7C15U;
    constexpr std::uint64_t second = 0xC2B2AE3D27D4EB4FU;
    static_assert(PartIndex::shortestValue == sizeof(std::uint64_t));
    static_assert(PartIndex::longestPart == 2 * sizeof(std::uint64_t));
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::memcpy(&start, text.data(), sizeof start);
    std::memcpy(&end, text.data() + text.size() - sizeof end, sizeof end);
    std::uint64_t hash = start * first;
    hash ^= hash >> 29U;
    hash = (hash + end) * second;
    hash ^= hash >> 32U;
    return hash * first;
}

} // namespace

PartIndex::PartIndex(const Values& values)
    : filterBits_(filterBitsFor(values)), mayHave_(std::size_t{1} << filterBits_) {
    for (const std::string_view value : values) {
        const std::size_t length = std::min(value.size(), longestPart);
        std::vector<std::uint64_t>& hashes = hashes_.at(length);
        for (std::size_t at = 0; at + length <= value.size(); ++at) {
            const std::uint64_t hash = hashOf(value.substr(at, length));
            // Saves memory for a value of equal bytes.
            if (hashes.empty() || hashes.back() != hash) {
                hashes.push_back(hash);
                mayHave_[filterSlot(hash)] = true;
            }
        }
    }
    for (std::vector<std::uint64_t>& hashes : hashes_) {
        std::ranges::sort(hashes);
    }
}

bool PartIndex::hasPartIn(std::string_view text) const {
    for (std::size_t length = shortestValue; length <= longestPart; ++length) {
        const std::vector<std::uint64_t>& hashes = hashes_.at(length);
        if (hashes.empty()) {
            continue;
        }
        for (std::size_t at = 0; at + length <= text.size(); ++at) {
            const std::uint64_t hash = hashOf(text.substr(at, length));
            if (mayHave_[filterSlot(hash)] && std::ranges::binary_search(hashes, hash)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace orvel
