// SPDX-License-Identifier: Apache-2.0
#include "service/HTTP.h"

#include <algorithm>

namespace orvel::service {

namespace {

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

} // namespace

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

std::optional<std::string_view> Request::header(std::string_view name) const {
    std::optional<std::string_view> found;
    for (const auto& [key, value] : headers) {
        if (!equalsIgnoringCase(key, name)) {
            continue;
        }
        if (found) {
            return std::nullopt;
        }
        found = value;
    }
    return found;
}

} // namespace orvel::service
