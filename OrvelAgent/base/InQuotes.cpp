// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/InQuotes.h"

#include "core/Text.h"

#include <fmt/format.h>

#include <iterator>

namespace orvel {

namespace {

/// The number of a character of one to three bytes.
unsigned codePoint(std::string_view character) {
    unsigned value = static_cast<unsigned char>(character.front());
    if (character.size() > 1) {
        value &= character.size() == 2 ? 0x1FU : 0x0FU;
    }
    for (const char next : character.substr(1)) {
        value = value << 6U | (static_cast<unsigned char>(next) & 0x3FU);
    }
    return value;
}

} // namespace

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        std::size_t length = 1;
        switch (text.front()) {
        case '"':
            result += "\\\"";
            break;
        case '\\':
            result += "\\\\";
            break;
        case '\n':
            result += "\\n";
            break;
        case '\r':
            result += "\\r";
            break;
        case '\t':
            result += "\\t";
            break;
        case '\0':
            result += "\\0";
            break;
        default:
            if (const std::size_t control = tavrin::controlCharacterLength(text); control > 0) {
                length = control;
                fmt::format_to(
                    std::back_inserter(result),
                    "\\u{{{:02X}}}",
                    codePoint(text.substr(0, control)));
            } else {
                result += text.front();
            }
        }
        text.remove_prefix(length);
    }
    result += '"';
    return result;
}

} // namespace orvel
