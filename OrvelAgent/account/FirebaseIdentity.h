// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Date.h"
#include "core/Secret.h"
#include "platform/URLSession.h"

#include <QCoroTask>

#include <string>
#include <string_view>

namespace orvel {

class Clock;
class Configuration;
class Worker;

/// The identity provider: turns the custom token of a sign-in into an ID token and a refresh token,
/// and a refresh token into a fresh pair.
///
/// A value, copied freely, without state. The session, the worker and the clock are borrowed and
/// must outlive every exchange; the value itself need not. Main thread.
class FirebaseIdentity final {
public:
    struct Tokens {
        /// The bearer token of our own service.
        tavrin::Secret idToken;
        tavrin::Secret refreshToken;
        /// When the ID token stops being valid, counted from the arrival of the reply.
        tavrin::Date expiresAt;
    };

    FirebaseIdentity(
        URLSession& session, Worker& worker, Clock& clock, const Configuration& configuration);

    /// Both throw `IdentityError` when the provider refuses, `tavrin::URLError` when there is no
    /// reply, `tavrin::JSONDecodingError` when a success has not the expected shape, and
    /// `tavrin::TaskCancelled` when cancelled. One call is one request. No error holds a token.
    [[nodiscard]] QCoro::Task<Tokens> signInWithCustomToken(
        tavrin::Secret customToken, tavrin::CancellationToken cancellation = {}) const;
    [[nodiscard]] QCoro::Task<Tokens>
    refresh(tavrin::Secret refreshToken, tavrin::CancellationToken cancellation = {}) const;

    /// Whether an `IdentityError` with this message says that the session is gone for good; with
    /// any other it may work later.
    [[nodiscard]] static bool isRevocation(std::string_view message);

private:
    /// What the endpoint calls the parts of its reply.
    struct ReplyKeys {
        std::string_view idToken;
        std::string_view refreshToken;
        std::string_view expiresIn;
    };
    struct Reply {
        tavrin::Secret idToken;
        tavrin::Secret refreshToken;
        tavrin::Seconds lifetime{};
    };

    [[nodiscard]] static URLRequest
    makeRequest(const std::string& url, std::string key, std::string contentType, std::string body);
    /// Throws what the operations throw.
    [[nodiscard]] static Reply decode(int status, std::string_view body, const ReplyKeys& keys);
    /// On a copy of the value, which lives as long as the request.
    static QCoro::Task<Tokens> exchange(
        FirebaseIdentity identity,
        URLRequest request,
        ReplyKeys keys,
        tavrin::CancellationToken cancellation);

    URLSession* session_;
    Worker* worker_;
    Clock* clock_;
    std::string identityToolkitURL_;
    std::string secureTokenURL_;
    std::string apiKey_;
};

} // namespace orvel
