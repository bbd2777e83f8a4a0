// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/InQuotes.h"

#include <fmt/format.h>

#include <iterator>

namespace orvel {

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        switch (character) {
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
            if (byte < 0x20 || byte == 0x7F) {
                fmt::format_to(std::back_inserter(result), "\\u{{{:02X}}}", byte);
            } else {
                result += character;
            }
        }
    }
    result += '"';
    return result;
}

} // namespace orvel
