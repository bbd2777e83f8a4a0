// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"

#include "core/UnicodeRules.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <tuple>

namespace tavrin {

namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

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
        throw std::bad_alloc();
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

} // namespace tavrin
