// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/OneTimeTokens.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// The codes that a browser hands to the agent: each stands for one account, for one minute, and
/// for the agent alone that knows the verifier behind the challenge. Usable from several threads.
class AuthorizationCodes final {
public:
    static constexpr std::string_view prefix = "orvel-code-";
    static constexpr std::chrono::minutes lifetime{1};

    explicit AuthorizationCodes(Now now) : codes_(std::string(prefix), lifetime, std::move(now)) {}

    /// Whether the text can be the hash of a verifier.
    [[nodiscard]] static bool isChallenge(std::string_view text);

    [[nodiscard]] std::string mint(std::string challenge, std::string uid);

    /// The account's uid; nothing for a code that is wrong, old or used, and for a wrong verifier.
    /// The code is used up in every case.
    [[nodiscard]] std::optional<std::string>
    redeem(std::string_view code, std::string_view verifier);

private:
    struct Grant {
        std::string challenge;
        std::string uid;
    };

    OneTimeTokens<Grant> codes_;
};

} // namespace orvel::service
