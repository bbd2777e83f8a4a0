// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/Handle.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Reduces handles to match hints, with which handles of the service, the address book and the
/// Messages database are compared. Two handles match if both have a hint and the hints are equal.
namespace tavrin::HandleNormalizer {

/// A phone number with fewer digits has no match hint.
inline constexpr std::size_t phoneMinDigits = 7;

/// The decimal digits of the text in any script, unconverted. If they are exactly eleven and begin
/// with "1", that digit is dropped. May be empty.
[[nodiscard]] std::string phoneDigits(std::string_view text);

[[nodiscard]] std::optional<std::string> matchHint(const Handle& handle);

} // namespace tavrin::HandleNormalizer
