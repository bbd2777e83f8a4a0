// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/BearerTokens.h"

#include "core/SessionPolicy.h"
#include "service/accounts/IdentityProvider.h"
#include "service/http/Envelope.h"
#include "service/support/Cryptography.h"

#include <string_view>

namespace orvel::service {

namespace {

/// Empty if the request has none.
std::string_view bearerToken(const Request& request) {
    constexpr std::string_view scheme = "Bearer ";
    const auto value = request.header("Authorization").value_or("");
    if (!equalsIgnoringCase(value.substr(0, scheme.size()), scheme)) {
        return {};
    }
    const auto token = value.substr(scheme.size());
    return token.find_first_of(" \t") == std::string_view::npos ? token : std::string_view();
}

Refusal sessionExpired() {
    return {
        401,
        std::string(tavrin::SessionPolicy::expiredCode),
        "The session has expired. Please sign in again."};
}

} // namespace

BearerTokens::BearerTokens(
    const std::vector<std::string>& accepted, const IdentityProvider& provider)
    : provider_(provider) {
    for (const auto& token : accepted) {
        accepted_.insert(sha256(token));
    }
}

void BearerTokens::expire(std::string_view token) {
    const std::lock_guard lock(mutex_);
    expired_.insert(sha256(token));
}

void BearerTokens::require(const Request& request) const {
    const auto token = bearerToken(request);
    if (token.empty()) {
        throw Refusal(401, "unauthorized", "The request carries no bearer token.");
    }
    const auto hash = sha256(token);
    {
        const std::lock_guard lock(mutex_);
        if (expired_.contains(hash)) {
            throw sessionExpired();
        }
    }
    if (accepted_.contains(hash)) {
        return;
    }
    switch (provider_.check(token)) {
    case IdentityProvider::Bearer::Valid:
        return;
    case IdentityProvider::Bearer::SessionEnded:
        throw sessionExpired();
    case IdentityProvider::Bearer::NotAnIDToken:
    case IdentityProvider::Bearer::Expired:
        break;
    }
    throw Refusal(401, "unauthorized", "The bearer token is not accepted.");
}

bool BearerTokens::accepts(const Request& request) const {
    try {
        require(request);
        return true;
    } catch (const Refusal&) {
        return false;
    }
}

const Account* BearerTokens::account(const Request& request) const {
    return provider_.account(bearerToken(request));
}

} // namespace orvel::service
