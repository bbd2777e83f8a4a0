// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/AuthorizationCodes.h"

#include <algorithm>

namespace orvel::service {

namespace {

bool isBase64URL(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           (character >= '0' && character <= '9') || character == '-' || character == '_';
}

} // namespace

bool AuthorizationCodes::isChallenge(std::string_view text) {
    constexpr std::size_t hashSize = 43;
    return text.size() == hashSize && std::ranges::all_of(text, isBase64URL);
}

std::string AuthorizationCodes::mint(std::string challenge, std::string uid) {
    return codes_.mint({std::move(challenge), std::move(uid)});
}

std::optional<std::string>
AuthorizationCodes::redeem(std::string_view code, std::string_view verifier) {
    auto grant = codes_.take(code);
    if (!grant || !equalsInConstantTime(sha256(verifier), grant->challenge)) {
        return std::nullopt;
    }
    return std::move(grant->uid);
}

} // namespace orvel::service
