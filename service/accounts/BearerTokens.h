// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace orvel::service {

struct Account;
class IdentityProvider;

/// The bearer tokens that open the service: given ones, and the provider's ID tokens. Usable from
/// several threads.
class BearerTokens final {
public:
    /// Without any given token every one is accepted, but for ID tokens that have ended. The
    /// provider must outlive the object.
    BearerTokens(std::vector<std::string> accepted, const IdentityProvider& provider);

    /// From now on the token's session counts as expired.
    void expire(std::string token);

    /// Throws `Refusal` unless the request carries an accepted token.
    void require(const Request& request) const;

    /// Whose ID token the request carries; nothing when it is none, or one of nobody.
    [[nodiscard]] const Account* account(const Request& request) const;

private:
    const IdentityProvider& provider_;
    const std::set<std::string, std::less<>> accepted_;
    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> expired_;
};

} // namespace orvel::service
