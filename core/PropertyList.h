// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace tavrin {

struct PropertyListLimits {
    /// Of the list in bytes, and of all texts and data in it once every reference to them is
    /// replaced by a copy.
    std::size_t size;
    /// Counted after every reference is replaced by a copy.
    std::size_t objectCount;
    /// The root's depth is 1.
    std::size_t depth;
};

struct PropertyListDeleter {
    void operator()(void* node) const noexcept;
};

/// A libplist node (`plist_t`) with all it holds.
using PropertyList = std::unique_ptr<void, PropertyListDeleter>;

/// Reads a binary or XML property list from bytes that are not to be trusted; null when it is
/// neither, malformed or beyond the limits. Of XML only what property list writers produce is
/// read: no attributes, comments or CDATA sections inside `<plist>`.
///
/// A text with NUL in it comes out of a binary list as a data node, because libplist would cut it.
[[nodiscard]] PropertyList
parsePropertyList(std::span<const std::uint8_t> bytes, const PropertyListLimits& limits);

} // namespace tavrin
