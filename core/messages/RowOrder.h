// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace tavrin {

/// The order in which a walk meets the row ids: up or down from a bound. In a damaged file, some
/// ids are out of order.
class RowOrder final {
public:
    /// Ids greater than `highestRowID` are damaged.
    RowOrder(std::int64_t bound, bool ascending, std::int64_t highestRowID)
        : bound_(bound), highestRowID_(highestRowID), ascending_(ascending) {}

    /// The id of the row before the first one.
    [[nodiscard]] std::int64_t bound() const { return bound_; }

    /// Whether an id can follow the other one.
    [[nodiscard]] bool canFollow(std::int64_t before, std::int64_t rowID) const {
        return isPossible(rowID) && isBeyond(before, rowID);
    }

    /// For each id, whether it is possible, fits to those around it and is beyond the bound.
    [[nodiscard]] std::vector<bool> fitting(const std::vector<std::int64_t>& rowIDs) const;

private:
    [[nodiscard]] bool isPossible(std::int64_t rowID) const { return rowID <= highestRowID_; }

    [[nodiscard]] bool isBeyond(std::int64_t before, std::int64_t rowID) const {
        return ascending_ ? rowID > before : rowID < before;
    }

    std::int64_t bound_;
    std::int64_t highestRowID_;
    bool ascending_;
};

} // namespace tavrin
