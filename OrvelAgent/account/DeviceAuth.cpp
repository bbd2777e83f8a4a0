// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/DeviceAuth.h"

#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/account/SignInCallback.h"
#include "OrvelAgent/account/SignInVerifier.h"
#include "OrvelAgent/base/Completion.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/network/QueryItems.h"
#include "core/JSON.h"
#include "platform/WebAuthenticationSession.h"

#include <QString>
#include <QUrl>

#include <memory>
#include <utility>
#include <variant>
#include <vector>

namespace orvel {

namespace {

/// The request that exchanges a code for a custom token.
struct TokenRequest {
    static constexpr bool isSecret = true;

    tavrin::Secret code;
    tavrin::Secret codeVerifier;
};

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const TokenRequest& request) {
    boost::json::object& object = json.emplace_object();
    object.emplace("code", request.code.text());
    object.emplace("codeVerifier", request.codeVerifier.text());
}

struct TokenResponse {
    static constexpr bool isSecret = true;

    tavrin::Secret customToken;
};

TokenResponse
tag_invoke(const boost::json::value_to_tag<TokenResponse>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    // The account's id is not used, but a reply without it is invalid.
    static_cast<void>(tavrin::stringAt(object, "uid"));
    return {tavrin::Secret(tavrin::stringAt(object, "customToken"))};
}

/// Returns the callback URL, or throws the `AuthError` for the outcome.
struct CallbackOf {
    std::string operator()(std::string url) const { return url; }
    std::string operator()(const WebAuthenticationSession::NotStarted&) const {
        throw AuthError("Could not open the sign-in window.");
    }
    std::string operator()(const WebAuthenticationSession::Cancelled&) const {
        throw AuthError("Sign-in was cancelled.");
    }
    std::string operator()(const WebAuthenticationSession::NoResponse&) const {
        throw AuthError("Sign-in ended without a response.");
    }
    std::string operator()(const WebAuthenticationSession::Failed& failed) const {
        throw AuthError(failed.description);
    }
};

} // namespace

DeviceAuth::DeviceAuth(WebAuthenticationSession& session, const Configuration& configuration)
    : session_(&session),
      webBaseURL_(configuration.webBaseURL()),
      version_(configuration.shortVersion()) {}

QCoro::Task<tavrin::Secret>
DeviceAuth::authorize(APIClient api, tavrin::CancellationToken cancellation) const {
    return authorizeFrom(*this, std::move(api), std::move(cancellation));
}

QCoro::Task<std::string>
DeviceAuth::present(std::string url, tavrin::CancellationToken cancellation) const {
    return presentFrom(session_, std::move(url), std::move(cancellation));
}

std::string DeviceAuth::signInURL(const std::string& verifier) const {
    const std::vector<QueryItem> items = {
        {"challenge", SignInVerifier::challenge(verifier)}, {"client", "mac"}, {"v", version_}};
    std::string url = webBaseURL_ + "/link?" + percentEncodedQuery(items);
    if (!QUrl(QString::fromStdString(url), QUrl::StrictMode).isValid()) {
        throw AuthError("Could not build the sign-in URL.");
    }
    return url;
}

QCoro::Task<tavrin::Secret>
DeviceAuth::authorizeFrom(DeviceAuth auth, APIClient api, tavrin::CancellationToken cancellation) {
    tavrin::Secret verifier(SignInVerifier::makeVerifier());
    std::string url = auth.signInURL(verifier.text());
    std::string callbackURL = co_await presentFrom(auth.session_, std::move(url), cancellation);
    const tavrin::Secret callback(std::move(callbackURL));
    cancellation.throwIfCancelled();

    auto request = std::make_shared<TokenRequest>();
    request->code = SignInCallback::code(callback.text());
    request->codeVerifier = std::move(verifier);
    std::shared_ptr<const TokenRequest> body = std::move(request);
    TokenResponse response = co_await api.send<TokenResponse, TokenRequest>(
        "/api/v1/auth/device/token", "POST", std::move(body), std::move(cancellation));
    co_return std::move(response.customToken);
}

QCoro::Task<std::string> DeviceAuth::presentFrom(
    WebAuthenticationSession* session, std::string url, tavrin::CancellationToken cancellation) {
    using Outcome = WebAuthenticationSession::Outcome;
    auto start = [session, url = std::move(url)](auto completion) {
        return session->start(url, "orvelagent", SignInCallback::screened, std::move(completion));
    };
    Outcome outcome = co_await awaitCompletion<Outcome>(std::move(start), std::move(cancellation));
    co_return std::visit(CallbackOf(), std::move(outcome));
}

} // namespace orvel
