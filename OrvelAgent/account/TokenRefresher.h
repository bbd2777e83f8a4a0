// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/SessionStore.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"

#include <functional>

namespace orvel {

/// The ID token, kept in memory only, and its refresh, of which at most one is in flight.
///
/// Borrows the session store and the clock. Main thread. May be destroyed at any time: a running
/// refresh then ends at once, and its waiters get no token.
class TokenRefresher final {
public:
    using Token = std::optional<tavrin::Secret>;

    /// `onRevoked` is called when the identity provider has ended the session. It must call
    /// `replace` and resolve the result; it may destroy this object.
    TokenRefresher(
        FirebaseIdentity identity,
        SessionStore& sessions,
        Clock& clock,
        Logger log,
        std::function<void()> onRevoked);
    ~TokenRefresher();
    TokenRefresher(const TokenRefresher&) = delete;
    TokenRefresher& operator=(const TokenRefresher&) = delete;

    /// A token that is good for another minute at least, refreshed if needed.
    QCoro::Task<Token> currentToken();

    /// Replaces the token, or forgets it, and cancels the refresh in flight. Returns that refresh's
    /// result, if there is one; the caller resolves it as its last step, because the waiters resume
    /// inside.
    [[nodiscard]] std::optional<Deferred<Token>>
    replace(const std::optional<FirebaseIdentity::Tokens>& tokens);

private:
    struct Refresh {
        tavrin::CancellationSource cancellation;
        Deferred<Token> token;
    };

    QCoro::Task<> run(Refresh refresh);
    void setToken(const FirebaseIdentity::Tokens& tokens);

    const FirebaseIdentity identity_;
    SessionStore& sessions_;
    Clock& clock_;
    const Logger log_;
    const std::function<void()> onRevoked_;
    std::optional<tavrin::Secret> idToken_;
    std::optional<tavrin::Date> idTokenExpiry_;
    std::optional<Refresh> refreshInFlight_;
    QCoro::Task<> refreshing_;
};

} // namespace orvel
