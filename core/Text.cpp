// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"

#include "core/OutOfMemory.h"
#include "core/UnicodeRules.h"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace tavrin {

namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// More than any grapheme cluster in use has; the longest emoji have 35.
constexpr std::size_t maximumBytesPerCharacter = 64;

/// The position of the first ill-formed sequence at or after `from`, which must be the start of a
/// sequence. The size of the text if there is none.
std::size_t firstIllFormed(std::string_view text, std::size_t from) {
    constexpr std::uint64_t highBits = 0x8080808080808080U;
    const std::size_t size = text.size();
    std::size_t i = from;
    while (i < size) {
        std::uint64_t word = 0;
        if (size - i >= sizeof word) {
            std::memcpy(&word, text.data() + i, sizeof word);
            if ((word & highBits) == 0) {
                i += sizeof word;
                continue;
            }
        }
        const std::size_t start = i;
        if (unicode_rules::nextCharacter(text, i) < 0) {
            return start;
        }
    }
    return size;
}

/// The start of the last character or ill-formed byte.
std::size_t startOfLast(std::string_view text) {
    constexpr std::size_t longestSequence = 4;
    std::size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < longestSequence &&
           (static_cast<unsigned char>(text[start]) & 0xC0U) == 0x80U) {
        --start;
    }
    return start;
}

template <typename IsWhiteSpace>
std::string_view trimmedBy(std::string_view text, IsWhiteSpace isWhiteSpace) {
    while (!text.empty()) {
        std::size_t next = 0;
        if (!isWhiteSpace(unicode_rules::nextCharacter(text, next))) {
            break;
        }
        text.remove_prefix(next);
    }
    while (!text.empty()) {
        const std::size_t start = startOfLast(text);
        std::size_t next = start;
        if (!isWhiteSpace(unicode_rules::nextCharacter(text, next)) || next != text.size()) {
            break;
        }
        text = text.substr(0, start);
    }
    return text;
}

/// At most that many bytes, and no part of a character at the end.
std::string_view cutToBytes(std::string_view text, std::size_t maximumBytes) {
    if (text.size() <= maximumBytes) {
        return text;
    }
    const std::string_view kept = text.substr(0, maximumBytes);
    const bool isBetweenCharacters =
        (static_cast<unsigned char>(text[maximumBytes]) & 0xC0U) != 0x80U;
    return isBetweenCharacters ? kept : kept.substr(0, startOfLast(kept));
}

/// The first grapheme clusters of well-formed text.
std::string_view firstClusters(std::string_view text, std::size_t count) {
    if (text.size() <= count) {
        return text;
    }
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, decltype(&utext_close)> source(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status),
        utext_close);
    const std::unique_ptr<icu::BreakIterator> clusters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_SUCCESS(status)) {
        clusters->setText(source.get(), status);
    }
    if (U_FAILURE(status)) {
        // Only if memory or the library's data is missing.
        return prefix(text, count);
    }
    std::size_t end = 0;
    for (; count > 0 && end < text.size(); --count) {
        end = static_cast<std::size_t>(clusters->next());
    }
    return text.substr(0, end);
}

} // namespace

namespace unicode_rules {

std::string_view trimmed(std::string_view text) {
    return trimmedBy(text, [](UChar32 character) { return u_isUWhiteSpace(character) != 0; });
}

std::string lowercased(std::string_view text) {
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("The text is too long to be lower-cased.");
    }
    std::string result;
    icu::StringByteSink<std::string> sink(&result, static_cast<std::int32_t>(text.size()));
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::utf8ToLower(
        "",
        0,
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())),
        sink,
        nullptr,
        status);
    if (U_FAILURE(status)) {
        // With these arguments, only memory allocation can fail.
        throw OutOfMemory();
    }
    return result;
}

} // namespace unicode_rules

bool isValidUTF8(std::string_view text) {
    return firstIllFormed(text, 0) == text.size();
}

std::string repairedUTF8(std::string_view text) {
    std::size_t illFormed = firstIllFormed(text, 0);
    if (illFormed == text.size()) {
        return std::string(text);
    }
    std::string result;
    result.reserve(text.size() + replacementCharacter.size());
    std::size_t position = 0;
    while (illFormed < text.size()) {
        result.append(text, position, illFormed - position);
        result.append(replacementCharacter);
        position = illFormed;
        std::ignore = unicode_rules::nextCharacter(text, position);
        illFormed = firstIllFormed(text, position);
    }
    result.append(text, position);
    return result;
}

std::string_view trimmed(std::string_view text) {
    return trimmedBy(text, [](UChar32 character) {
        if (character <= 0x7F) {
            return character == ' ' || (character >= '\t' && character <= '\r');
        }
        return u_isUWhiteSpace(character) != 0;
    });
}

std::string lowercased(std::string_view text) {
    std::string result(text);
    unsigned seen = 0;
    for (char& character : result) {
        seen |= static_cast<unsigned char>(character);
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return seen <= 0x7F ? result : unicode_rules::lowercased(text);
}

std::string_view prefix(std::string_view text, std::size_t count) {
    std::size_t end = 0;
    for (; count > 0 && end < text.size(); --count) {
        std::ignore = unicode_rules::nextCharacter(text, end);
    }
    return text.substr(0, end);
}

std::string_view withoutByteOrderMark(std::string_view text) {
    return text.substr(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0);
}

std::size_t controlCharacterLength(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const auto byte = [text](std::size_t index) -> unsigned {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    };
    const auto isIn = [](unsigned value, unsigned first, unsigned last) {
        return first <= value && value <= last;
    };
    switch (byte(0)) {
    case 0xC2: // U+0080 to U+009F
        return isIn(byte(1), 0x80, 0x9F) ? 2 : 0;
    case 0xD8: // U+061C
        return byte(1) == 0x9C ? 2 : 0;
    case 0xE2: // U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069
        return (byte(1) == 0x80 && (isIn(byte(2), 0x8E, 0x8F) || isIn(byte(2), 0xA8, 0xAE))) ||
                       (byte(1) == 0x81 && isIn(byte(2), 0xA6, 0xA9))
                   ? 3
                   : 0;
    default:
        return byte(0) < 0x20 || byte(0) == 0x7F ? 1 : 0;
    }
}

std::string shownText(std::string_view text, std::size_t maximumCharacters) {
    // Cut first: the text may be very long.
    const std::string wellFormed =
        repairedUTF8(cutToBytes(text, maximumCharacters * maximumBytesPerCharacter));
    std::string_view rest = firstClusters(wellFormed, maximumCharacters);
    std::string shown;
    shown.reserve(rest.size());
    while (!rest.empty()) {
        const std::size_t control = controlCharacterLength(rest);
        const bool isKept = control == 0 || rest.front() == '\n' || rest.front() == '\t' ||
                            rest.starts_with("\r\n");
        if (isKept) {
            shown += rest.front();
        } else {
            shown += replacementCharacter;
        }
        rest.remove_prefix(isKept ? 1 : control);
    }
    return shown;
}

std::string onOneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    while (!text.empty()) {
        const std::size_t control = controlCharacterLength(text);
        line += control == 0 ? text.front() : ' ';
        text.remove_prefix(std::max<std::size_t>(control, 1));
    }
    return line;
}

} // namespace tavrin
