// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/PropertyList.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Reads keyed archives: property lists, binary or XML, whose objects refer to each other by index.
namespace tavrin::KeyedArchive {

/// Archives beyond these limits are refused. The longest message with all its attributes is far
/// smaller.
inline constexpr PropertyListLimits limits{.size = 4U << 20U, .objectCount = 100'000, .depth = 64};

/// The plain string of an archived attributed string (class NSAttributedString or a derived one).
/// No value for another root class, a malformed or oversized archive, and dangling or circular
/// references. Never throws.
[[nodiscard]] std::optional<std::string> attributedString(std::span<const std::uint8_t> archive);

} // namespace tavrin::KeyedArchive
