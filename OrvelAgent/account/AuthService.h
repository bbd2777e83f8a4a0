// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/account/TokenRefresher.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/network/APIClient.h"
#include "OrvelAgent/network/AccountSession.h"
#include "core/CancellationToken.h"
#include "core/Secret.h"
#include "platform/Clock.h"
#include "platform/Keychain.h"
#include "platform/LogStore.h"
#include "platform/URLSession.h"
#include "platform/WebAuthenticationSession.h"
#include "platform/Workspace.h"

#include <QCoroTask>
#include <QObject>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace orvel {

/// The user's session with the service. Signs in through the browser, stores the session in the
/// keychain, provides valid ID tokens, and signs out when the server ends the session.
///
/// Main thread. Borrows everything in `Dependencies`, which must outlive all coroutines of this
/// object. The object may be destroyed at any time, also by a receiver of `changed` or a waiting
/// coroutine. Its coroutines then end at once: no sign-in is completed and no token is returned.
/// Therefore each step changes all state before it calls `publish`, and a coroutine with several
/// steps is static and holds a `Reference`.
class AuthService final : public QObject {
    Q_OBJECT

public:
    struct Dependencies {
        URLSession& urlSession;
        Worker& worker;
        Keychain& keychain;
        WebAuthenticationSession& webAuthenticationSession;
        Workspace& workspace;
        Clock& clock;
        LogStore& logStore;
    };

    /// Starts to restore the session. Until that is done, the user is signed out.
    AuthService(const Dependencies& dependencies, Configuration configuration);
    ~AuthService() override;

    /// Waits until the stored session has been read, or the user has signed in or out. The user may
    /// first have to unlock the keychain. Throws `tavrin::TaskCancelled` at once if cancelled or
    /// when this object is destroyed.
    QCoro::Task<> restored(tavrin::CancellationToken cancellation = {}) {
        return restoration_.settled(std::move(cancellation));
    }

    /// Signs in through the browser and updates the state that the queries below return. Never
    /// throws. Does nothing if a sign-in is running.
    QCoro::Task<> signIn();

    /// Ends the running sign-in without an error. A failure that happened before this call is still
    /// reported in `lastError`.
    void cancelSignIn() { signInCancellation_.cancel(); }

    /// Deletes the session from memory and from the keychain.
    void signOut();

    /// A token that is valid for at least another minute, refreshed if needed. No value without a
    /// session or if the refresh fails.
    QCoro::Task<std::optional<tavrin::Secret>> currentToken() { return tokens_.currentToken(); }

    /// The sign-in in force. Follows what other processes did to the stored session, and asks the
    /// service for the profile if the account is not known yet. No value while signed out. Throws
    /// the errors of that request, and as `restored` does.
    QCoro::Task<std::optional<AccountSession>> session(tavrin::CancellationToken cancellation = {});

    /// Callbacks for `APIClient`. They may outlive this object; then the first provides no token
    /// and the second does nothing.
    [[nodiscard]] APIClient::TokenProvider tokenProvider();
    [[nodiscard]] APIClient::SessionExpiredHandler sessionExpiredHandler();

    /// Opens the web site in the default browser.
    void openAccountPage();

    /// Waits until the keychain has stored every change. Returns the error of a change that failed,
    /// if any. Throws as `restored` does.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    stored(tavrin::CancellationToken cancellation = {});

    /// Whether a session with a refresh token exists.
    [[nodiscard]] bool isSignedIn() const { return isSignedIn_; }
    [[nodiscard]] const std::optional<std::string>& accountEmail() const { return accountEmail_; }
    [[nodiscard]] const std::optional<std::string>& accountHandle() const { return accountHandle_; }
    [[nodiscard]] bool isSigningIn() const { return isSigningIn_; }
    /// Why the last sign-in failed.
    [[nodiscard]] const std::optional<std::string>& lastError() const { return lastError_; }
    /// Whether the last sign-in failed because the identity has no account.
    [[nodiscard]] bool needsAccount() const { return needsAccount_; }

Q_SIGNALS:
    /// One or more properties have changed.
    void changed();

private:
    /// Coroutines use it instead of `this`. A `QPointer` would be cleared too late, because the
    /// destructor resumes coroutines before that.
    struct Reference {
        AuthService* service;
        tavrin::CancellationToken lifetime;

        /// Null after the destructor has started.
        [[nodiscard]] AuthService* get() const {
            return lifetime.isCancelled() ? nullptr : service;
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
    static QCoro::Task<> runSignIn(
        Reference self,
        QCoro::Task<FirebaseIdentity::Tokens> tokens,
        APIClient profileClient,
        tavrin::CancellationToken cancellation);
    static QCoro::Task<>
    loadProfile(Reference self, APIClient api, tavrin::CancellationToken cancellation);
    static QCoro::Task<>
    fetchProfile(Reference self, APIClient api, tavrin::CancellationToken cancellation);
    static QCoro::Task<std::optional<AccountSession>>
    currentSession(Reference self, tavrin::CancellationToken cancellation);
    static QCoro::Task<> expire(Reference self, tavrin::CancellationToken session);
    static QCoro::Task<std::optional<tavrin::Secret>>
    tokenOf(Reference self, tavrin::CancellationToken session);
    [[nodiscard]] AccountSession accountSession();
    bool follow(const KeychainStore::Reading& stored);
    [[nodiscard]] tavrin::CancellationSource endSession();

    void acceptTokens(const FirebaseIdentity::Tokens& tokens);
    void mergeProfile(const Profile& profile, const KeychainStore::Reading& stored);
    void finishSignIn(const std::exception_ptr& failure);
    void recordFailedSignIn(const std::exception_ptr& failure);
    void publish(Waiters waiters = {});

    [[nodiscard]] Reference reference() { return {this, lifetime_.token()}; }
    [[nodiscard]] APIClient
    client(APIClient::TokenProvider tokenProvider, APIClient::SessionExpiredHandler onExpired = {});

    URLSession& urlSession_;
    Worker& worker_;
    Workspace& workspace_;
    const Configuration configuration_;
    const FirebaseIdentity identity_;
    const DeviceAuth deviceAuth_;
    const Logger log_;
    const std::shared_ptr<KeychainStore> sessions_;
    TokenRefresher tokens_;

    bool isSignedIn_ = false;
    std::optional<std::string> accountEmail_;
    std::optional<std::string> accountHandle_;
    /// As `accountOf`. Empty until it is known.
    std::string account_;
    bool isSigningIn_ = false;
    std::optional<std::string> lastError_;
    bool needsAccount_ = false;

    tavrin::CancellationSource signInCancellation_;
    /// Replaced at each sign-in and sign-out.
    tavrin::CancellationSource sessionEnd_;

    const Deferred<void> restoration_;
    tavrin::CancellationSource restoreCancellation_;
    /// Cancelled by the destructor.
    tavrin::CancellationSource lifetime_;
    QCoro::Task<> restoring_;
};

} // namespace orvel
