// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTP.h"

#include <algorithm>
#include <charconv>

namespace orvel::service {

namespace {

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

enum class Plus { Literal, Space };

std::optional<std::string> percentDecoded(std::string_view text, Plus plus) {
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '+' && plus == Plus::Space) {
            result += ' ';
        } else if (text[index] != '%') {
            result += text[index];
        } else {
            const auto digits = text.substr(index + 1, 2);
            const char* end = digits.data() + digits.size();
            unsigned char byte = 0;
            if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) {
                return std::nullopt;
            }
            result += static_cast<char>(byte);
            index += 2;
        }
    }
    return result;
}

std::optional<std::string> itemValue(std::string_view items, std::string_view name, Plus plus) {
    std::optional<std::string> found;
    while (!items.empty()) {
        const auto item = items.substr(0, items.find('&'));
        items.remove_prefix(std::min(item.size() + 1, items.size()));
        const auto key = item.substr(0, item.find('='));
        if (percentDecoded(key, plus) != name) {
            continue;
        }
        auto value = percentDecoded(item.substr(std::min(key.size() + 1, item.size())), plus);
        if (found || !value) {
            return std::nullopt;
        }
        found = std::move(value);
    }
    return found;
}

} // namespace

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

void Request::setTarget(std::string_view target) {
    const auto encoded = target.substr(0, target.find('?'));
    path = percentDecoded(encoded, Plus::Literal).value_or(std::string(encoded));
    query = target.substr(std::min(encoded.size() + 1, target.size()));
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

std::string_view Request::cookie(std::string_view name) const {
    auto cookies = header("Cookie").value_or("");
    while (!cookies.empty()) {
        auto cookie = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(cookie.size() + 1, cookies.size()));
        cookie.remove_prefix(std::min(cookie.find_first_not_of(' '), cookie.size()));
        const auto key = cookie.substr(0, cookie.find('='));
        if (key == name && key.size() < cookie.size()) {
            return cookie.substr(key.size() + 1);
        }
    }
    return {};
}

bool Request::hasContentType(std::string_view type) const {
    const auto value = header("Content-Type").value_or("");
    auto found = value.substr(0, value.find(';'));
    while (found.ends_with(' ') || found.ends_with('\t')) {
        found.remove_suffix(1);
    }
    return equalsIgnoringCase(found, type);
}

std::optional<std::string> Request::queryValue(std::string_view name) const {
    return itemValue(query, name, Plus::Literal);
}

std::optional<std::string> Request::formValue(std::string_view name) const {
    return itemValue(body, name, Plus::Space);
}

} // namespace orvel::service
