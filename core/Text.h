// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace tavrin {

/// Whether every byte belongs to a well-formed UTF-8 sequence (no surrogates, no overlong forms,
/// nothing above U+10FFFF). NUL is a character like any other.
[[nodiscard]] bool isValidUTF8(std::string_view text);

/// The text with every maximal ill-formed sequence replaced by one U+FFFD. Well-formed text is
/// returned unchanged.
[[nodiscard]] std::string repairedUTF8(std::string_view text);

/// The text without Unicode white space and line separators at both ends. The argument must be
/// well-formed; the result is a view of it.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// Lower-cased by the full Unicode rules of the root locale.
[[nodiscard]] std::string lowercased(std::string_view text);

/// The first `count` Unicode scalar values of well-formed text, or all of a shorter text.
[[nodiscard]] std::string_view prefix(std::string_view text, std::size_t count);

} // namespace tavrin
