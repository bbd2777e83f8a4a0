// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/AuthorizationCodes.h"

namespace orvel::service {

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
