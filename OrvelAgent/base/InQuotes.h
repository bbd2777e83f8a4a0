// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel {

/// The text in quotation marks, as the generic rendering of an error shows it: quotation marks,
/// backslashes and control characters are escaped, so that it stays one line.
[[nodiscard]] std::string inQuotes(std::string_view text);

} // namespace orvel
