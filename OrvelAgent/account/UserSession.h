// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/account/TokenRefresher.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/network/APIClient.h"
#include "OrvelAgent/network/AccountSession.h"
#include "core/CancellationToken.h"
#include "core/Secret.h"
#include "platform/Clock.h"
#include "platform/Keychain.h"

#include <QCoroTask>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// The current sign-in. Restores the session from the keychain, provides its tokens, follows what
/// other processes do to it, and ends it.
///
/// Main thread. Borrows the keychain and the clock, which must outlive all coroutines of this
/// object. The object may be destroyed at any time, also by an event or a waiting coroutine. Its
/// coroutines then end at once and return no token. Therefore each step changes all state before it
/// calls `publish`, and a coroutine with several steps is static and holds a `Reference`.
class UserSession final {
public:
    struct Events {
        /// One or more properties have changed.
        std::function<void()> changed;
        /// The server has ended the session. Must call `end`.
        std::function<void()> revoked;
    };

    /// Starts to restore the session. Until that is done, the user is signed out. `api` needs no
    /// token provider.
    UserSession(
        Keychain& keychain,
        const std::string& bundleIdentifier,
        FirebaseIdentity identity,
        APIClient api,
        Clock& clock,
        Logger log,
        Events events);
    ~UserSession();
    UserSession(const UserSession&) = delete;
    UserSession& operator=(const UserSession&) = delete;

    /// As the functions of `AuthService`.
    QCoro::Task<> restored(tavrin::CancellationToken cancellation) {
        return restoration_.settled(std::move(cancellation));
    }
    QCoro::Task<std::optional<tavrin::Secret>> currentToken() { return tokens_.currentToken(); }
    QCoro::Task<std::optional<AccountSession>> current(tavrin::CancellationToken cancellation);
    QCoro::Task<std::optional<tavrin::PlatformError>>
    stored(tavrin::CancellationToken cancellation);
    [[nodiscard]] bool isSignedIn() const { return isSignedIn_; }
    [[nodiscard]] const std::optional<std::string>& accountEmail() const { return accountEmail_; }
    [[nodiscard]] const std::optional<std::string>& accountHandle() const { return accountHandle_; }

    /// The user has signed in.
    void begin(const FirebaseIdentity::Tokens& tokens);

    /// Deletes the session from memory and from the keychain.
    void end();

    /// Asks the service for the account's e-mail address and handle. Ignores all errors.
    QCoro::Task<> loadProfile(tavrin::CancellationToken cancellation);

    /// Ends all coroutines, as the destructor does.
    void close();

    /// Cancelled after `close`.
    [[nodiscard]] tavrin::CancellationToken lifetime() const { return lifetime_.token(); }

private:
    /// Coroutines use it instead of `this`. A `QPointer` would be cleared too late, because the
    /// destructor resumes coroutines before that.
    struct Reference {
        UserSession* session;
        tavrin::CancellationToken lifetime;

        /// Null after the destructor has started.
        [[nodiscard]] UserSession* get() const {
            return lifetime.isCancelled() ? nullptr : session;
        }
    };

    /// The results that `publish` resolves. `token` is the value of `refresh`.
    struct Waiters {
        std::optional<Deferred<void>> restoration;
        std::optional<Deferred<std::optional<tavrin::Secret>>> refresh;
        std::optional<tavrin::Secret> token;
        /// Cancelled, because the session has ended.
        std::optional<tavrin::CancellationSource> session;
    };

    QCoro::Task<> restore(tavrin::CancellationToken cancellation);
    static QCoro::Task<std::optional<AccountSession>>
    followed(Reference self, tavrin::CancellationToken cancellation);
    static QCoro::Task<> tryLoadProfile(Reference self, tavrin::CancellationToken cancellation);
    static QCoro::Task<> fetchProfile(Reference self, tavrin::CancellationToken cancellation);
    static QCoro::Task<> expire(Reference self, tavrin::CancellationToken session);
    static QCoro::Task<std::optional<tavrin::Secret>>
    tokenOf(Reference self, tavrin::CancellationToken session);

    [[nodiscard]] AccountSession accountSession();
    bool follow(const KeychainStore::Reading& stored);
    [[nodiscard]] tavrin::CancellationSource endAccount();
    void mergeProfile(const Profile& profile, const KeychainStore::Reading& stored);
    void publish(Waiters waiters = {});
    [[nodiscard]] Reference reference() { return {this, lifetime_.token()}; }

    const APIClient api_;
    const Logger log_;
    const Events events_;
    const std::shared_ptr<KeychainStore> sessions_;
    TokenRefresher tokens_;

    bool isSignedIn_ = false;
    std::optional<std::string> accountEmail_;
    std::optional<std::string> accountHandle_;
    /// As `accountOf`. Empty until it is known.
    std::string account_;
    /// Replaced at each sign-in and sign-out.
    tavrin::CancellationSource sessionEnd_;

    const Deferred<void> restoration_;
    tavrin::CancellationSource restoreCancellation_;
    /// Cancelled by `close`.
    tavrin::CancellationSource lifetime_;
    QCoro::Task<> restoring_;
};

} // namespace orvel
