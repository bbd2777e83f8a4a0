// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/OneTimeTokens.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// The codes that a browser hands to the agent.
///
/// A code is valid for one account and for one minute. Redeeming it takes the verifier whose hash
/// is the challenge. Thread-safe.
class AuthorizationCodes final {
public:
    static constexpr std::string_view prefix = "orvel-code-";
    static constexpr std::chrono::minutes lifetime{1};

    explicit AuthorizationCodes(Now now) : codes_(std::string(prefix), lifetime, std::move(now)) {}

    /// The challenge must be a hash in form.
    [[nodiscard]] std::string mint(std::string challenge, std::string uid);

    /// Returns the account's uid, or no value if the code is wrong, expired or used or the verifier
    /// is wrong. In every case the code cannot be used again.
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
