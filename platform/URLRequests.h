// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"
#include "platform/URLSession.h"

#include <algorithm>
#include <string_view>

/// What every `URLSession` does with a request.
namespace orvel {

[[nodiscard]] inline bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte < 0x20 && byte != '\t') || byte == 0x7F;
    });
}

/// Whether the text is a valid method or header name.
[[nodiscard]] inline bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') ||
               std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
    });
}

/// The error of a request whose method or headers cannot be sent. A line break in a token must not
/// inject another header.
[[nodiscard]] inline std::optional<tavrin::URLError> headerError(const URLRequest& request) {
    const bool isWellFormed =
        isToken(request.method) &&
        std::all_of(request.headers.begin(), request.headers.end(), [](const auto& header) {
            return isToken(header.first) && !hasControlCharacter(header.second);
        });
    if (isWellFormed) {
        return std::nullopt;
    }
    return tavrin::URLError(
        tavrin::URLErrorCode::Unknown, "The request has a header that cannot be sent.");
}

/// Overwrites the parts that may contain tokens.
inline void wipe(URLRequest& request) {
    for (auto& [name, value] : request.headers) {
        tavrin::wipe(value);
    }
    if (request.body) {
        tavrin::wipe(*request.body);
    }
}

} // namespace orvel
