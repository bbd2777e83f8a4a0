// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/PropertyList.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Reads archives that a keyed archiver wrote: a property list, binary or XML, whose objects refer
/// to each other by index.
namespace tavrin::KeyedArchive {

/// Beyond these it is not a message text: far more than the longest one with all its attributes.
inline constexpr PropertyListLimits limits{.size = 4U << 20U, .objectCount = 100'000, .depth = 64};

/// The plain string of the archived attributed string (class NSAttributedString or one derived from
/// it), or nothing for anything else: another root class, a malformed or oversized archive, a
/// reference that leads nowhere or in a circle. Never throws.
[[nodiscard]] std::optional<std::string> attributedString(std::span<const std::uint8_t> archive);

} // namespace tavrin::KeyedArchive
