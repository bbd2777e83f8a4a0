// SPDX-License-Identifier: Apache-2.0
#include "core/JSON.h"
#include "service/accounts/IdentityProvider.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Router.h"
#include "service/http/Envelope.h"
#include "service/support/Cryptography.h"

#include <boost/json.hpp>

#include <utility>

namespace orvel::service {

namespace {

namespace json = boost::json;

constexpr int badRequest = 400;

Reply replyOf(const json::object& body, int status = 200) {
    return {.status = status, .body = json::serialize(body)};
}

std::string lifetimeOf(const IdentityProvider& provider) {
    return std::to_string(provider.idTokenLifetime().count());
}

Reply signIn(const Request& request, IdentityProvider& provider) {
    const auto body = jsonBody(request);
    const auto token = tavrin::optionalStringAt(body, "token").value_or("");
    if (token.empty()) {
        throw IdentityRefusal("MISSING_CUSTOM_TOKEN");
    }
    const auto* wantsSession = body.if_contains("returnSecureToken");
    const auto tokens = provider.signIn(token);
    json::object reply{{"idToken", tokens.idToken}};
    // A client that does not ask for a session gets an ID token that it cannot refresh.
    if (wantsSession != nullptr && wantsSession->is_bool() && wantsSession->get_bool()) {
        reply["refreshToken"] = tokens.refreshToken;
        reply["expiresIn"] = lifetimeOf(provider);
    }
    return replyOf(reply);
}

Reply refresh(const Request& request, IdentityProvider& provider) {
    if (!request.hasContentType("application/x-www-form-urlencoded")) {
        throw Refusal(415, "unsupported_media_type", "The content type must be that of a form.");
    }
    if (request.formValue("grant_type") != "refresh_token") {
        throw IdentityRefusal("INVALID_GRANT_TYPE");
    }
    const auto token = request.formValue("refresh_token").value_or("");
    if (token.empty()) {
        throw IdentityRefusal("MISSING_REFRESH_TOKEN");
    }
    const auto tokens = provider.refresh(token);
    return replyOf({
        {"id_token", tokens.idToken},
        {"refresh_token", tokens.refreshToken},
        {"expires_in", lifetimeOf(provider)},
        {"token_type", "Bearer"},
        {"user_id", tokens.uid},
        {"project_id", "orvel-local-service"},
    });
}

} // namespace

Reply identityError(int status, std::string_view message) {
    const json::object cause{{"message", message}, {"domain", "global"}, {"reason", "invalid"}};
    return replyOf(
        {{"error", {{"code", status}, {"message", message}, {"errors", json::array{cause}}}}},
        status);
}

void addIdentityEndpoints(Router& router, IdentityProvider& provider, std::string apiKey) {
    const auto add = [&](const char* path, Reply (*action)(const Request&, IdentityProvider&)) {
        router.add(
            "POST",
            path,
            Router::Access::Open,
            [&provider, apiKey, action](const Request& request) {
                try {
                    const auto key = request.queryValue("key").value_or("");
                    if (!apiKey.empty() && !equalsInConstantTime(key, apiKey)) {
                        throw IdentityRefusal("API key not valid. Please pass a valid API key.");
                    }
                    return action(request, provider);
                } catch (const IdentityRefusal& refusal) {
                    return identityError(badRequest, refusal.what());
                } catch (const Refusal& refusal) {
                    return identityError(refusal.status(), refusal.what());
                } catch (const tavrin::JSONDecodingError& error) {
                    return identityError(badRequest, error.what());
                }
            });
    };
    add("/identity/v1/accounts:signInWithCustomToken", signIn);
    add("/identity/v1/token", refresh);
}

} // namespace orvel::service
