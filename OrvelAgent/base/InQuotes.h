// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel {

/// Puts the text in quotation marks. Escapes quotation marks, backslashes and control characters,
/// so the result is one line.
[[nodiscard]] std::string inQuotes(std::string_view text);

} // namespace orvel
