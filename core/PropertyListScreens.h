// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/PropertyList.h"

#include <optional>
#include <string>
#include <string_view>

/// Checks of an untrusted property list before libplist reads it.
///
/// libplist copies referenced objects without a limit, recurses without a limit, truncates texts at
/// NUL, drops unpaired surrogates, and is slow on specially crafted XML. These functions refuse or
/// adjust such lists.
namespace tavrin::PropertyListScreens {

inline constexpr std::string_view binaryMagic = "bplist00";

/// Adjusts the list's texts. Returns whether libplist may then read it.
[[nodiscard]] bool passesBinary(std::string& bytes, const PropertyListLimits& limits);

/// The part of the list that libplist may read, or no value if it is refused.
[[nodiscard]] std::optional<std::string>
screenedXML(std::string_view xml, const PropertyListLimits& limits);

} // namespace tavrin::PropertyListScreens
