// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
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

/// The text without a byte order mark at its start.
[[nodiscard]] std::string_view withoutByteOrderMark(std::string_view text);

/// The number of bytes of the control character that the text starts with, or 0. Control characters
/// are those of C0 and C1, DEL, the bidirectional controls, and the line and paragraph separators:
/// they can control a terminal, or show a text as something else than it is.
[[nodiscard]] std::size_t controlCharacterLength(std::string_view text);

/// How much of a text from outside is shown, in grapheme clusters: a letter with its combining
/// marks is one, and so is CR LF.
inline constexpr std::size_t maximumShownCharacters = 500;

/// A text from outside, as it may be shown, logged or printed: its first characters as well-formed
/// UTF-8, with U+FFFD for every control character except tabs and line breaks (LF and CR LF). Also
/// limits the bytes, because one character can have any number of combining marks.
[[nodiscard]] std::string
shownText(std::string_view text, std::size_t maximumCharacters = maximumShownCharacters);

/// The text with a space for every control character, including tabs and line breaks.
[[nodiscard]] std::string onOneLine(std::string_view text);

} // namespace tavrin
