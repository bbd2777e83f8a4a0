// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/WebAddress.h"

#include <algorithm>

namespace orvel {

namespace {

bool hasOnlyURLCharacters(std::string_view text) {
    constexpr auto characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                "-._~:/?#[]@!$&'()*+,;=%";
    return text.find_first_not_of(characters) == std::string_view::npos;
}

} // namespace

bool isHttpsURL(std::string_view text) {
    return text.starts_with("https://") && hasOnlyURLCharacters(text);
}

bool isLoopbackURL(std::string_view text) {
    constexpr std::string_view start = "http://127.0.0.1:";
    if (!text.starts_with(start) || !hasOnlyURLCharacters(text)) {
        return false;
    }
    // "http://127.0.0.1:1@host/" has another host.
    const std::size_t path = text.find('/', start.size());
    const std::string_view port = text.substr(start.size(), path - start.size());
    return path != std::string_view::npos && !port.empty() &&
           std::ranges::all_of(port, [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace orvel
