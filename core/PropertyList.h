// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace tavrin {

struct PropertyListLimits {
    /// Most bytes of the list, and of its texts and data after every reference is replaced by a
    /// copy.
    std::size_t size;
    /// Most objects, counted after every reference is replaced by a copy.
    std::size_t objectCount;
    /// Deepest nesting. The root's depth is 1.
    std::size_t depth;
};

struct PropertyListDeleter {
    void operator()(void* node) const noexcept;
};

/// Owns a libplist node (`plist_t`) and its children.
using PropertyList = std::unique_ptr<void, PropertyListDeleter>;

/// Parses an untrusted binary or XML property list. Returns null if it is neither, malformed or
/// beyond the limits. XML with attributes, comments or CDATA sections inside `<plist>` is refused:
/// property list writers produce none.
///
/// A text of a binary list that contains NUL becomes a data node, because libplist would truncate
/// it.
[[nodiscard]] PropertyList
parsePropertyList(std::span<const std::uint8_t> bytes, const PropertyListLimits& limits);

} // namespace tavrin
