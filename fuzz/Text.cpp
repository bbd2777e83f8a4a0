// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"

#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

using namespace tavrin;

namespace {

std::uint8_t byteAt(std::string_view text, std::size_t index) {
    return index < text.size() ? static_cast<std::uint8_t>(text[index]) : 0;
}

/// The length of the well-formed sequence at the start, or 0, by the table of the Unicode standard.
std::size_t sequenceLength(std::string_view text) {
    const std::uint8_t first = byteAt(text, 0);
    const auto hasTails = [text](std::size_t from, std::size_t to) {
        for (std::size_t index = from; index <= to; ++index) {
            if ((byteAt(text, index) & 0xC0U) != 0x80U) {
                return false;
            }
        }
        return true;
    };
    const std::uint8_t second = byteAt(text, 1);
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return hasTails(1, 1) ? 2 : 0;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        const bool isAllowed =
            (first != 0xE0 || second >= 0xA0) && (first != 0xED || second <= 0x9F);
        return isAllowed && hasTails(1, 2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool isAllowed =
            (first != 0xF0 || second >= 0x90) && (first != 0xF4 || second <= 0x8F);
        return isAllowed && hasTails(1, 3) ? 4 : 0;
    }
    return 0;
}

bool isWellFormed(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = sequenceLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

/// Of well-formed text.
std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char character : text) {
        count += (static_cast<std::uint8_t>(character) & 0xC0U) != 0x80U ? 1U : 0U;
    }
    return count;
}

void checkShown(std::string_view text, std::size_t maximumCharacters) {
    const std::string shown = shownText(text, maximumCharacters);
    check(isWellFormed(shown));
    check(shownText(shown, maximumCharacters) == shown);
    // A byte becomes up to three, and a character has up to 64.
    check(shown.size() <= 3 * text.size());
    check(shown.size() <= 3 * 64 * maximumCharacters);
    for (std::string_view rest = shown; !rest.empty(); rest.remove_prefix(1)) {
        check(
            controlCharacterLength(rest) == 0 || rest.front() == '\n' || rest.front() == '\t' ||
            rest.starts_with("\r\n"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::size_t limit = input.byte();
    const std::string_view text = input.rest();
    const bool isValid = isWellFormed(text);
    check(isValidUTF8(text) == isValid);
    const std::string repaired = repairedUTF8(text);
    check(isWellFormed(repaired));
    check(isValid == (repaired == text));
    check(repairedUTF8(repaired) == repaired);

    // Finding the characters of a longer text takes most of the time, so only some inputs are
    // longer.
    checkShown(text, limit < 64 ? limit + 1 : maximumShownCharacters);

    const std::string line = onOneLine(text);
    check(line.size() <= text.size() && onOneLine(line) == line);
    check(!isValid || isWellFormed(line));
    for (std::string_view rest = line; isValid && !rest.empty(); rest.remove_prefix(1)) {
        check(controlCharacterLength(rest) == 0);
    }

    const std::string_view start = prefix(repaired, limit);
    check(isWellFormed(start) && repaired.starts_with(start));
    check(characterCount(start) == std::min(limit, characterCount(repaired)));
    check(trimmed(trimmed(repaired)) == trimmed(repaired));
    check(text.ends_with(withoutByteOrderMark(text)));
    return 0;
}
