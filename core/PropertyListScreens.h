// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/PropertyList.h"

#include <optional>
#include <string>
#include <string_view>

/// Checks of an untrusted property list before libplist reads it.
///
/// libplist replaces references by copies without counting, recurses as deep as the list says, cuts
/// texts at NUL, drops unpaired surrogates and is slow on purpose-made XML. So it reads only copies
/// that these screens have walked through and adjusted.
namespace tavrin::PropertyListScreens {

inline constexpr std::string_view binaryMagic = "bplist00";

/// Adjusts the list's texts; whether libplist may read it then.
[[nodiscard]] bool passesBinary(std::string& bytes, const PropertyListLimits& limits);

/// The part of the list that libplist may read, or no value.
[[nodiscard]] std::optional<std::string>
screenedXML(std::string_view xml, const PropertyListLimits& limits);

} // namespace tavrin::PropertyListScreens
