// SPDX-License-Identifier: Apache-2.0
#include "core/messages/RowOrder.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

namespace tavrin {

namespace {

/// For each key, whether it belongs to the longest sequence of keys that never descends. Of several
/// longest ones, takes one with the smallest last key.
std::vector<bool> longestAscent(const std::vector<std::int64_t>& keys) {
    // For each length, the index at which the sequence with the smallest last key ends.
    std::vector<std::size_t> ends;
    std::vector<std::optional<std::size_t>> previous(keys.size());
    for (std::size_t index = 0; index < keys.size(); ++index) {
        const auto end = std::upper_bound(
            ends.begin(), ends.end(), keys[index], [&keys](std::int64_t key, std::size_t other) {
                return key < keys[other];
            });
        if (end != ends.begin()) {
            previous[index] = *std::prev(end);
        }
        if (end == ends.end()) {
            ends.push_back(index);
        } else {
            *end = index;
        }
    }
    std::vector<bool> belongs(keys.size());
    for (std::optional<std::size_t> index = ends.empty() ? std::nullopt
                                                         : std::optional(ends.back());
         index;
         index = previous[*index]) {
        belongs[*index] = true;
    }
    return belongs;
}

} // namespace

std::vector<bool> RowOrder::fitting(const std::vector<std::int64_t>& rowIDs) const {
    // The complement reverses the order.
    const auto key = [this](std::int64_t rowID) {
        return ascending_ ? rowID : ~rowID;
    };
    // The bound is the id of the row before, so it also shows which ids fit.
    std::vector<std::int64_t> keys{key(bound_)};
    for (const std::int64_t rowID : rowIDs) {
        if (isPossible(rowID)) {
            keys.push_back(key(rowID));
        }
    }
    const std::vector<bool> ascent = longestAscent(keys);
    std::vector<bool> fits;
    std::size_t position = 0;
    for (const std::int64_t rowID : rowIDs) {
        fits.push_back(isPossible(rowID) && ascent[++position] && isBeyond(bound_, rowID));
    }
    return fits;
}

} // namespace tavrin
