// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

struct Account;
class IdentityProvider;

/// The bearer tokens that the service accepts: configured ones, and the provider's ID tokens.
/// Thread-safe.
class BearerTokens final {
public:
    /// If `accepted` is empty, only ID tokens are accepted. The provider must outlive the object.
    BearerTokens(const std::vector<std::string>& accepted, const IdentityProvider& provider);

    /// From now on a request with the token is refused with an expired session.
    void expire(std::string_view token);

    /// Throws `Refusal` if the request has no accepted token.
    void require(const Request& request) const;

    /// Whether the request has an accepted token.
    [[nodiscard]] bool accepts(const Request& request) const;

    /// The account whose ID token the request carries, or null.
    [[nodiscard]] const Account* account(const Request& request) const;

private:
    const IdentityProvider& provider_;
    /// As hashes: the time of a comparison then says nothing about the token.
    std::set<std::string> accepted_;
    mutable std::mutex mutex_;
    std::set<std::string> expired_;
};

} // namespace orvel::service
