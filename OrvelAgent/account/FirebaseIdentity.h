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

/// The client of the identity provider. Exchanges a custom token or a refresh token for an ID token
/// and a new refresh token.
///
/// Copyable and stateless. Borrows the session, the worker and the clock, which must outlive every
/// request. The copy itself need not. Main thread.
class FirebaseIdentity final {
public:
    /// The life of an ID token if the reply contains no valid one.
    static constexpr tavrin::Seconds defaultLifetime{3600};

    struct Tokens {
        /// The bearer token for our service.
        tavrin::Secret idToken;
        tavrin::Secret refreshToken;
        /// When the ID token expires, counted from the arrival of the reply.
        tavrin::Date expiresAt;
    };

    /// The JSON keys of an endpoint's reply.
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

    FirebaseIdentity(
        URLSession& session, Worker& worker, Clock& clock, const Configuration& configuration);

    /// Both send one request. They throw `IdentityError` if the provider refuses,
    /// `tavrin::URLError` if there is no reply, `tavrin::JSONDecodingError` if the reply has an
    /// unexpected form, and `tavrin::TaskCancelled` if cancelled. No error contains a token.
    [[nodiscard]] QCoro::Task<Tokens> signInWithCustomToken(
        tavrin::Secret customToken, tavrin::CancellationToken cancellation = {}) const;
    [[nodiscard]] QCoro::Task<Tokens>
    refresh(tavrin::Secret refreshToken, tavrin::CancellationToken cancellation = {}) const;

    /// Whether an `IdentityError` with this message means that the session has ended. After any
    /// other message, a retry may succeed.
    [[nodiscard]] static bool isRevocation(std::string_view message);

    /// Decodes one reply. `sentToken` is the token of the request. Throws `IdentityError` and
    /// `tavrin::JSONDecodingError`. Any thread.
    [[nodiscard]] static Reply decode(
        int status,
        std::string_view body,
        const ReplyKeys& keys,
        const tavrin::Secret& sentToken,
        std::string_view apiKey);

private:
    /// Takes a copy of the client, which lives as long as the request. `sentToken` is the token in
    /// the request.
    static QCoro::Task<Tokens> exchange(
        FirebaseIdentity identity,
        URLRequest request,
        tavrin::Secret sentToken,
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
