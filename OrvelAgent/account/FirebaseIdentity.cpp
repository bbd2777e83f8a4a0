// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/FirebaseIdentity.h"

#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/QueryItems.h"
#include "OrvelAgent/network/RequestEcho.h"
#include "OrvelAgent/network/SecretJSON.h"
#include "OrvelAgent/network/URLLoading.h"
#include "core/JSON.h"
#include "platform/Clock.h"

#include <QByteArrayView>

#include <boost/json/object.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

namespace orvel {

namespace {

constexpr tavrin::Seconds requestTimeout(60);

constexpr std::array<std::string_view, 8> revocationReasons = {
    "TOKEN_EXPIRED",
    "USER_DISABLED",
    "USER_NOT_FOUND",
    "INVALID_REFRESH_TOKEN",
    "INVALID_GRANT",
    "MISSING_REFRESH_TOKEN",
    "CREDENTIAL_TOO_OLD_LOGIN_AGAIN",
    "TOKEN_REVOKED"};

/// The provider sends the seconds as text.
tavrin::Seconds lifetimeFrom(std::string_view text) {
    bool isNumber = false;
    const double seconds =
        QByteArrayView(text.data(), static_cast<qsizetype>(text.size())).toDouble(&isNumber);
    // Qt accepts white space around a number, but we do not.
    const bool isBare = text.find_first_of(" \t\n\v\f\r") == std::string_view::npos;
    return isNumber && isBare && std::isfinite(seconds) ? tavrin::Seconds(seconds)
                                                        : FirebaseIdentity::defaultLifetime;
}

/// A token that can be sent in a request and stored. Anything else would make a session that fails
/// with every use.
tavrin::Secret tokenAt(const boost::json::object& object, std::string_view key) {
    tavrin::Secret token(tavrin::stringAt(object, key));
    const bool isSendable = std::ranges::all_of(
        token.text(), [](char character) { return character > ' ' && character < 0x7F; });
    if (token.isEmpty() || !isSendable) {
        throw tavrin::JSONDecodingError(
            "The JSON key \"" + std::string(key) + "\" is not a token.");
    }
    return token;
}

/// The provider's error message, or no value if the body has none.
std::optional<std::string> errorMessage(std::string_view body) {
    try {
        const boost::json::value json = parseSecretJSON(body);
        const boost::json::value* error = tavrin::asObject(json).if_contains("error");
        if (error == nullptr || error->is_null()) {
            return std::nullopt;
        }
        return tavrin::optionalStringAt(tavrin::asObject(*error), "message");
    } catch (const std::exception&) {
        // The caller then uses the HTTP status.
        return std::nullopt;
    }
}

/// Whether the provider's message repeats a secret of the request.
bool repeats(std::string_view message, const tavrin::Secret& sentToken, std::string_view apiKey) {
    RequestEcho echo;
    echo.addSecret(sentToken.text());
    echo.addSecret(apiKey);
    return echo.isIn(message);
}

URLRequest
makeRequest(const std::string& url, std::string key, std::string contentType, std::string body) {
    URLRequest request;
    request.url = url + "?key=" + key;
    request.method = "POST";
    request.headers.emplace_back("Content-Type", std::move(contentType));
    request.body = std::move(body);
    request.timeout = requestTimeout;
    return request;
}

} // namespace

FirebaseIdentity::FirebaseIdentity(
    URLSession& session, Worker& worker, Clock& clock, const Configuration& configuration)
    : session_(&session),
      worker_(&worker),
      clock_(&clock),
      identityToolkitURL_(configuration.identityToolkitURL()),
      secureTokenURL_(configuration.secureTokenURL()),
      apiKey_(configuration.firebaseAPIKey()) {}

QCoro::Task<FirebaseIdentity::Tokens> FirebaseIdentity::signInWithCustomToken(
    tavrin::Secret customToken, tavrin::CancellationToken cancellation) const {
    std::string body;
    {
        boost::json::value json(boost::json::object_kind, wipingStorage());
        json.get_object().emplace("token", customToken.text());
        json.get_object().emplace("returnSecureToken", true);
        body = serializeSecretJSON(json);
    }
    return exchange(
        *this,
        makeRequest(
            identityToolkitURL_ + "accounts:signInWithCustomToken",
            apiKey_,
            "application/json",
            std::move(body)),
        std::move(customToken),
        ReplyKeys{"idToken", "refreshToken", "expiresIn"},
        std::move(cancellation));
}

QCoro::Task<FirebaseIdentity::Tokens> FirebaseIdentity::refresh(
    tavrin::Secret refreshToken, tavrin::CancellationToken cancellation) const {
    std::vector<QueryItem> form = {
        {"grant_type", "refresh_token"}, {"refresh_token", std::nullopt}};
    form.back().value = refreshToken.text();
    std::string body = percentEncodedQuery(form);
    tavrin::wipe(*form.back().value);
    return exchange(
        *this,
        makeRequest(secureTokenURL_, apiKey_, "application/x-www-form-urlencoded", std::move(body)),
        std::move(refreshToken),
        ReplyKeys{"id_token", "refresh_token", "expires_in"},
        std::move(cancellation));
}

bool FirebaseIdentity::isRevocation(std::string_view message) {
    return std::ranges::find(revocationReasons, message) != revocationReasons.end();
}

FirebaseIdentity::Reply FirebaseIdentity::decode(
    int status,
    std::string_view body,
    const ReplyKeys& keys,
    const tavrin::Secret& sentToken,
    std::string_view apiKey) {
    if (status < 200 || status > 299) {
        if (const std::optional<std::string> message = errorMessage(body)) {
            const IdentityError error(*message, status);
            // Also look at the text of the error: there, a tab is the letter "t" after a backslash,
            // which could complete a secret.
            if (isRevocation(*message) || (!repeats(*message, sentToken, apiKey) &&
                                           !repeats(error.what(), sentToken, apiKey))) {
                throw error;
            }
        }
        throw IdentityError("HTTP " + std::to_string(status), status);
    }
    const boost::json::value json = parseSecretJSON(body);
    const boost::json::object& object = tavrin::asObject(json);
    Reply reply;
    reply.idToken = tokenAt(object, keys.idToken);
    reply.refreshToken = tokenAt(object, keys.refreshToken);
    reply.lifetime = lifetimeFrom(tavrin::stringAt(object, keys.expiresIn));
    return reply;
}

QCoro::Task<FirebaseIdentity::Tokens> FirebaseIdentity::exchange(
    FirebaseIdentity identity,
    URLRequest request,
    tavrin::Secret sentToken,
    ReplyKeys keys,
    tavrin::CancellationToken cancellation) {
    URLResponse response =
        co_await load(identity.session_, std::move(request), std::move(cancellation));
    // Keep the body in a secret, which is wiped with the callable.
    auto decodeReply = [status = response.status,
                        body = tavrin::Secret(std::move(response.body)),
                        keys,
                        sentToken = std::move(sentToken),
                        apiKey = identity.apiKey_] {
        return decode(status, body.text(), keys, sentToken, apiKey);
    };
    Reply reply = co_await identity.worker_->run(std::move(decodeReply));
    Tokens tokens;
    tokens.idToken = std::move(reply.idToken);
    tokens.refreshToken = std::move(reply.refreshToken);
    tokens.expiresAt = identity.clock_->now() + reply.lifetime;
    co_return tokens;
}

} // namespace orvel
