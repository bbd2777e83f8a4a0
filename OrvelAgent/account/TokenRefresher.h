// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "core/Date.h"

#include <functional>
#include <memory>
#include <string>

namespace orvel {

/// Holds the ID token in memory and refreshes it. At most one refresh runs at a time.
///
/// Borrows the clock. Main thread. May be destroyed at any time. A running
/// refresh then ends at once without a token.
class TokenRefresher final {
public:
    using Token = std::optional<tavrin::Secret>;

    /// A token that expires sooner is refreshed.
    static constexpr tavrin::Seconds leastRemainingLife{60};

    /// Calls `onRevoked` after the identity provider has ended the session. `onRevoked` must call
    /// `replace` and resolve the result. It may destroy this object.
    ///
    /// Calls `follow` with the stored session before it is used. `follow` returns whether it is
    /// still this object's session. If not, it must do the same as `onRevoked`.
    TokenRefresher(
        FirebaseIdentity identity,
        std::shared_ptr<KeychainStore> sessions,
        Clock& clock,
        Logger log,
        std::function<void()> onRevoked,
        std::function<bool(const KeychainStore::Reading&)> follow);
    ~TokenRefresher();
    TokenRefresher(const TokenRefresher&) = delete;
    TokenRefresher& operator=(const TokenRefresher&) = delete;

    /// A token that is valid for at least another minute, refreshed if needed.
    QCoro::Task<Token> currentToken();

    /// Why the last refresh provided no token.
    [[nodiscard]] const std::string& lastFailure() const { return lastFailure_; }

    /// Replaces or deletes the token and cancels the running refresh. Returns the result of that
    /// refresh, if any. The caller must resolve it as its last step, because the waiting coroutines
    /// resume inside `resolve`.
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
    const std::shared_ptr<KeychainStore> sessions_;
    Clock& clock_;
    const Logger log_;
    const std::function<void()> onRevoked_;
    const std::function<bool(const KeychainStore::Reading&)> follow_;
    std::string lastFailure_;
    std::optional<tavrin::Secret> idToken_;
    std::optional<tavrin::Date> idTokenExpiry_;
    std::optional<Refresh> refreshInFlight_;
    QCoro::Task<> refreshing_;
};

} // namespace orvel
