// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/RequestEcho.h"

#include "core/Text.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using namespace orvel;

namespace {

struct Value {
    std::string text;
    bool isSecret = false;
};

/// The first byte that begins an escape sequence.
bool mayEscape(std::string_view text) {
    return text.find_first_of("%\\&") != std::string_view::npos;
}

/// The letters, digits and non-ASCII bytes, in lower case.
std::string wordsOf(std::string_view text) {
    std::string words;
    for (const char character : text) {
        if (character >= 'A' && character <= 'Z') {
            words += static_cast<char>(character - 'A' + 'a');
        } else if (
            (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ||
            static_cast<unsigned char>(character) >= 0x80) {
            words += character;
        }
    }
    return words;
}

constexpr std::size_t longWord = 16;

/// Whether the words of the text have so much of those of the value that it must not be shown.
bool hasLongPart(std::string_view words, std::string_view wanted) {
    for (std::size_t at = 0; at + longWord <= wanted.size(); ++at) {
        if (words.find(wanted.substr(at, longWord)) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

std::string numbered(std::string_view text, std::string_view before, std::string_view after) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        result += before;
        result += digits[byte >> 4U];
        result += digits[byte & 0xFU];
        result += after;
    }
    return result;
}

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < 0x80;
    });
}

constexpr std::uint8_t firstForm = 1;
constexpr std::uint8_t forms = 4;

/// A text that escapes a value in a usual form repeats it.
std::string escaped(const std::string& value, std::uint8_t form) {
    switch (form) {
    case 0:
        return value;
    case 1:
        return "x=" + numbered(value, "%", "");
    case 2:
        return "{\"x\":\"" + numbered(value, "\\u00", "") + "\"}";
    default:
        return "<p>" + numbered(value, "&#x", ";") + "</p>";
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    RequestEcho echo;
    std::vector<Value> values;
    const unsigned count = input.below(4);
    // One check for each input, because each one searches a text.
    const std::uint8_t kind = input.below(8);
    for (unsigned index = 0; index <= count; ++index) {
        Value value;
        value.isSecret = input.below(2) == 1;
        value.text = tavrin::repairedUTF8(input.text());
        value.isSecret ? echo.addSecret(value.text) : echo.add(value.text);
        values.push_back(std::move(value));
    }
    const std::string text = tavrin::repairedUTF8(input.rest());

    const std::string shown = echo.takenOutOf(text);
    check(tavrin::isValidUTF8(shown));
    check(shown.size() <= 2 * text.size());
    if (kind == 0) {
        check(echo.takenOutOf(shown) == shown);
    }
    const std::string words = wordsOf(text);
    for (const Value& value : values) {
        if (mayEscape(value.text)) {
            continue;
        }
        if (value.isSecret && value.text.size() >= 8 &&
            text.find(value.text) != std::string::npos) {
            check(shown.empty());
        }
        const std::string valueWords = wordsOf(value.text);
        if (!mayEscape(text)) {
            // Parts of a short secret could be ordinary words.
            const bool mustBeFound =
                (!value.isSecret || valueWords.size() >= 32) && hasLongPart(words, valueWords);
            check(!mustBeFound || shown.empty());
        }
        const auto form = static_cast<std::uint8_t>(kind - firstForm);
        if (kind >= firstForm && form < forms && valueWords.size() >= longWord &&
            (form < 2 || isASCII(value.text))) {
            check(echo.isIn(escaped(value.text, form)));
        }
    }
    return 0;
}
