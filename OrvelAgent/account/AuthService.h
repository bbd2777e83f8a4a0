// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/SessionStore.h"
#include "OrvelAgent/account/SignInAttempt.h"
#include "OrvelAgent/account/TokenRefresher.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/network/APIClient.h"
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

namespace orvel {

/// The user's session with the service: signs in through the browser, keeps the session in the
/// keychain, hands out fresh ID tokens, and signs out when the server ends the session.
///
/// Main thread. Everything in `Dependencies` is borrowed and must outlive every coroutine of this
/// object. The object may be destroyed at any time, also by a receiver of `changed` and by a waiter
/// of a result: its coroutines then end at once, without a sign-in and without a token. Therefore
/// each step completes its state and then calls `publish` last, and a coroutine that runs several
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

    /// Begins to restore the session; the user counts as signed out until it is read.
    AuthService(const Dependencies& dependencies, Configuration configuration);
    ~AuthService() override;

    /// Waits until the stored session is read, or no longer matters because the user has signed in
    /// or out. That may take as long as the user takes to unlock the keychain. Throws
    /// `tavrin::TaskCancelled` at once when cancelled, and when this object is destroyed.
    QCoro::Task<> restored(tavrin::CancellationToken cancellation = {});

    /// Signs in through the browser. Never throws: the outcome is in the properties. Does nothing
    /// while a sign-in runs.
    QCoro::Task<> signIn();

    /// Ends the running sign-in without an error. If it has failed already and only the report is
    /// pending, the error stays.
    void cancelSignIn();

    /// Forgets the session, here and in the keychain.
    void signOut();

    /// A token that is good for another minute at least, refreshed if needed; no value without a
    /// session or when the refresh fails.
    QCoro::Task<std::optional<tavrin::Secret>> currentToken();

    /// For clients of the service. Both may outlive this object; then they give no token and do
    /// nothing.
    [[nodiscard]] APIClient::TokenProvider tokenProvider();
    [[nodiscard]] APIClient::SessionExpiredHandler sessionExpiredHandler();

    /// Opens the web site in the default browser.
    void openAccountPage();

    /// Waits until the keychain has stored every change; the reason when it could not. Throws as
    /// `restored` does.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    stored(tavrin::CancellationToken cancellation = {});

    /// A session with a refresh token exists.
    [[nodiscard]] bool isSignedIn() const { return isSignedIn_; }
    [[nodiscard]] const std::optional<std::string>& accountEmail() const { return accountEmail_; }
    [[nodiscard]] const std::optional<std::string>& accountHandle() const { return accountHandle_; }
    [[nodiscard]] bool isSigningIn() const { return isSigningIn_; }
    /// Text of the last sign-in's failure.
    [[nodiscard]] const std::optional<std::string>& lastError() const { return lastError_; }
    /// The last sign-in found no account for that identity.
    [[nodiscard]] bool needsAccount() const { return needsAccount_; }

Q_SIGNALS:
    /// One or more of the properties have changed.
    void changed();

private:
    /// What a coroutine holds in place of `this`. (A `QPointer` is cleared only at the end of the
    /// destructor, which resumes coroutines before.)
    struct Reference {
        AuthService* service;
        tavrin::CancellationToken lifetime;

        /// Null once the destructor has begun.
        [[nodiscard]] AuthService* get() const {
            return lifetime.isCancelled() ? nullptr : service;
        }
    };

    /// Those who wait for the end of a step.
    struct Waiters {
        std::optional<Deferred<void>> restoration;
        std::optional<Deferred<std::optional<tavrin::Secret>>> refresh;
        std::optional<tavrin::Secret> token;
    };

    QCoro::Task<> restore(tavrin::CancellationToken cancellation);
    static QCoro::Task<> runSignIn(
        Reference self,
        SignInAttempt attempt,
        APIClient profileClient,
        tavrin::CancellationToken cancellation);
    static QCoro::Task<>
    loadProfile(Reference self, APIClient api, tavrin::CancellationToken cancellation);

    void acceptTokens(const FirebaseIdentity::Tokens& tokens);
    void mergeProfile(const Profile& profile, Session session);
    void finishSignIn(const std::exception_ptr& failure);
    void recordFailedSignIn(const std::exception_ptr& failure);
    void publish(Waiters waiters = {});

    [[nodiscard]] Reference reference();
    [[nodiscard]] APIClient
    client(APIClient::TokenProvider tokenProvider, APIClient::SessionExpiredHandler onExpired = {});

    URLSession& urlSession_;
    Worker& worker_;
    Workspace& workspace_;
    const Configuration configuration_;
    const FirebaseIdentity identity_;
    const DeviceAuth deviceAuth_;
    const Logger log_;
    const std::shared_ptr<SessionStore> sessions_;
    TokenRefresher tokens_;

    bool isSignedIn_ = false;
    std::optional<std::string> accountEmail_;
    std::optional<std::string> accountHandle_;
    bool isSigningIn_ = false;
    std::optional<std::string> lastError_;
    bool needsAccount_ = false;

    tavrin::CancellationSource signInCancellation_;
    std::uint64_t signOutCount_ = 0;

    const Deferred<void> restoration_;
    tavrin::CancellationSource restoreCancellation_;
    /// Cancelled by the destructor.
    tavrin::CancellationSource lifetime_;
    QCoro::Task<> restoring_;
};

} // namespace orvel
