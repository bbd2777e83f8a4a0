// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unicode/utf8.h>

#include <cstddef>
#include <string>
#include <string_view>

/// The full Unicode rules, for which `Text.h` and `HandleNormalizer.h` have fast paths for ASCII.
/// Declared here so that tests can compare both.
namespace tavrin::unicode_rules {

[[nodiscard]] std::string_view trimmed(std::string_view text);
[[nodiscard]] std::string lowercased(std::string_view text);
[[nodiscard]] std::string phoneDigits(std::string_view text);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // from within the macro

/// The character at the position, or a negative value for an ill-formed sequence. Advances the
/// position beyond it. The position must be within the text.
[[nodiscard]] inline UChar32 nextCharacter(std::string_view text, std::size_t& position) {
    const char* const bytes = text.data();
    UChar32 character = 0;
    U8_NEXT(bytes, position, text.size(), character);
    return character;
}

#pragma GCC diagnostic pop

} // namespace tavrin::unicode_rules
