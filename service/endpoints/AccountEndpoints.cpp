// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"
#include "service/accounts/AuthorizationCodes.h"
#include "service/accounts/BearerTokens.h"
#include "service/accounts/IdentityProvider.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"

#include <boost/json.hpp>

namespace orvel::service {

namespace {

Reply exchange(const Request& request, AuthorizationCodes& codes, IdentityProvider& provider) {
    const auto body = jsonBody(request);
    const auto code = tavrin::stringAt(body, "code");
    const auto verifier = tavrin::stringAt(body, "codeVerifier");
    const auto uid = codes.redeem(code, verifier);
    if (!uid) {
        throw Refusal(
            400, "invalid_code", "The sign-in code is not valid any more. Please sign in again.");
    }
    return success({{"customToken", provider.mintCustomToken(*uid)}, {"uid", *uid}});
}

Reply profile(const Account* account) {
    if (account == nullptr) {
        throw Refusal(404, "no_account", "The bearer token belongs to no account.");
    }
    boost::json::object json{{"uid", account->uid}};
    if (account->email) {
        json["email"] = *account->email;
    }
    if (account->handle) {
        json["handle"] = *account->handle;
    }
    return success(json);
}

} // namespace

void addAccountEndpoints(
    Router& router,
    AuthorizationCodes& codes,
    IdentityProvider& provider,
    const BearerTokens& tokens) {
    using enum Router::Access;
    router.add(
        "POST", "/api/v1/auth/device/token", Open, [&codes, &provider](const Request& request) {
            return exchange(request, codes, provider);
        });
    router.add("GET", "/api/v1/profile", BearerToken, [&tokens](const Request& request) {
        return profile(tokens.account(request));
    });
}

} // namespace orvel::service
