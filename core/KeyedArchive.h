// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Reads archives that a keyed archiver wrote: a property list, binary or XML, whose objects refer
/// to each other by index.
namespace tavrin::KeyedArchive {

/// More objects, or deeper nesting, is not a message text.
inline constexpr std::size_t maximumObjectCount = 100'000;
inline constexpr std::size_t maximumDepth = 64;

/// The plain string of the archived attributed string (class NSAttributedString or one derived from
/// it), or nothing for anything else: another root class, a malformed or oversized archive, a
/// reference that leads nowhere or in a circle. Never throws.
[[nodiscard]] std::optional<std::string> attributedString(std::span<const std::uint8_t> archive);

} // namespace tavrin::KeyedArchive
