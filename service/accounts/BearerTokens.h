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

/// The bearer tokens that the service accepts: configured ones, and the provider's ID tokens.
/// Thread-safe.
class BearerTokens final {
public:
    /// If `accepted` is empty, every token is accepted except expired ID tokens. The provider must
    /// outlive the object.
    BearerTokens(std::vector<std::string> accepted, const IdentityProvider& provider);

    /// From now on a request with the token is refused with an expired session.
    void expire(std::string token);

    /// Throws `Refusal` if the request has no accepted token.
    void require(const Request& request) const;

    /// The account whose ID token the request carries, or null.
    [[nodiscard]] const Account* account(const Request& request) const;

private:
    const IdentityProvider& provider_;
    const std::set<std::string, std::less<>> accepted_;
    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> expired_;
};

} // namespace orvel::service
