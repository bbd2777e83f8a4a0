// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/UserSession.h"
#include "OrvelAgent/base/Configuration.h"
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

/// The user's account at the service. Signs in through the browser and out again. See `UserSession`
/// for the session between these.
///
/// Main thread. Borrows everything in `Dependencies`, which must outlive all coroutines of this
/// object. The object may be destroyed at any time, also by a receiver of `changed` or a waiting
/// coroutine. Its coroutines then end at once: no sign-in is completed and no token is returned.
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
        return session_.restored(std::move(cancellation));
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
    QCoro::Task<std::optional<tavrin::Secret>> currentToken() { return session_.currentToken(); }

    /// The sign-in in force. Follows what other processes did to the stored session, and asks the
    /// service for the profile if the account is not known yet. No value while signed out. Throws
    /// the errors of that request, and as `restored` does.
    QCoro::Task<std::optional<AccountSession>>
    session(tavrin::CancellationToken cancellation = {}) {
        return session_.current(std::move(cancellation));
    }

    /// Opens the web site in the default browser.
    void openAccountPage();

    /// Waits until the keychain has stored every change. Returns the error of a change that failed,
    /// if any. Throws as `restored` does.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    stored(tavrin::CancellationToken cancellation = {}) {
        return session_.stored(std::move(cancellation));
    }

    /// Whether a session with a refresh token exists.
    [[nodiscard]] bool isSignedIn() const { return session_.isSignedIn(); }
    [[nodiscard]] const std::optional<std::string>& accountEmail() const {
        return session_.accountEmail();
    }
    [[nodiscard]] const std::optional<std::string>& accountHandle() const {
        return session_.accountHandle();
    }
    [[nodiscard]] bool isSigningIn() const { return isSigningIn_; }
    /// Why the last sign-in failed.
    [[nodiscard]] const std::optional<std::string>& lastError() const { return lastError_; }
    /// Whether the last sign-in failed because the identity has no account.
    [[nodiscard]] bool needsAccount() const { return needsAccount_; }

Q_SIGNALS:
    /// One or more properties have changed.
    void changed();

private:
    /// Coroutines use it instead of `this`, as in `UserSession`.
    struct Reference {
        AuthService* service;
        tavrin::CancellationToken lifetime;

        /// Null after the destructor has started.
        [[nodiscard]] AuthService* get() const {
            return lifetime.isCancelled() ? nullptr : service;
        }
    };

    static QCoro::Task<> runSignIn(
        Reference self,
        QCoro::Task<FirebaseIdentity::Tokens> tokens,
        tavrin::CancellationToken cancellation);
    void finishSignIn(const std::exception_ptr& failure);
    void recordFailedSignIn(const std::exception_ptr& failure);
    /// Its requests have no token.
    [[nodiscard]] APIClient client();

    URLSession& urlSession_;
    Worker& worker_;
    Workspace& workspace_;
    const Configuration configuration_;
    const FirebaseIdentity identity_;
    const DeviceAuth deviceAuth_;
    const Logger log_;

    bool isSigningIn_ = false;
    std::optional<std::string> lastError_;
    bool needsAccount_ = false;
    tavrin::CancellationSource signInCancellation_;
    UserSession session_;
};

} // namespace orvel
