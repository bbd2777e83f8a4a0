// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/network/APIClient.h"
#include "core/CancellationToken.h"
#include "core/Date.h"
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
/// keychain, hands out fresh ID tokens, and signs out when the server says that it is over.
///
/// The ID token lives in memory only. Main thread; what it is given besides the configuration is
/// borrowed and must outlive every coroutine of it. It may be destroyed at any time: whatever runs
/// then ends at once, without a sign-in and without a token.
class AuthService final : public QObject {
    Q_OBJECT

public:
    /// What the keychain keeps, as one JSON text under the account "session".
    struct Session {
        tavrin::Secret refreshToken;
        std::optional<std::string> uid;
        std::optional<std::string> email;
        std::optional<std::string> handle;
    };

    /// What the service knows about the account.
    struct Profile {
        std::optional<std::string> uid;
        std::optional<std::string> email;
        std::optional<std::string> handle;
    };

    /// What it borrows.
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

    /// Signs in through the browser. Never throws: how it went is in the properties. Does nothing
    /// while a sign-in runs.
    QCoro::Task<> signIn();

    /// Ends a sign-in that runs. Whoever takes it back has not failed: that leaves no error. One
    /// that has failed already, and only has not said so yet, has failed all the same.
    void cancelSignIn();

    /// Forgets the session, here and in the keychain.
    void signOut();

    /// A token that is good for another minute at least, refreshed if needed; nothing when there is
    /// no session or no new token could be had.
    QCoro::Task<std::optional<tavrin::Secret>> currentToken();

    /// For clients of the service, which may outlive this object: then there is no token, and
    /// nothing is left to be signed out.
    [[nodiscard]] APIClient::TokenProvider tokenProvider();
    [[nodiscard]] APIClient::SessionExpiredHandler sessionExpiredHandler();

    /// Opens the web site in the default browser.
    void openAccountPage();

    /// Waits until the keychain has every change, and gives the reason when it cannot keep them
    /// beyond the life of this process. Throws as `restored` does.
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
    /// One refresh and everybody who waits for its token.
    struct Refresh {
        tavrin::CancellationSource cancellation;
        Deferred<std::optional<tavrin::Secret>> token;
    };

    QCoro::Task<> restore(tavrin::CancellationToken cancellation);
    void finishSignIn(const std::exception_ptr& failure);
    void noteFailedSignIn(const std::exception_ptr& failure);
    QCoro::Task<> refreshTokens(std::shared_ptr<Refresh> refresh);
    void failRefresh(const std::exception_ptr& failure);
    [[nodiscard]] std::shared_ptr<Refresh> cancelRefresh();

    QCoro::Task<std::optional<Session>> loadSession(tavrin::CancellationToken cancellation) const;
    void saveSession(const Session& session);
    QCoro::Task<> loadProfile(tavrin::CancellationToken cancellation);
    void adopt(const FirebaseIdentity::Tokens& tokens);
    [[nodiscard]] APIClient
    client(APIClient::TokenProvider tokenProvider, APIClient::SessionExpiredHandler onExpired = {});

    URLSession& urlSession_;
    Worker& worker_;
    Workspace& workspace_;
    Clock& clock_;
    const Configuration configuration_;
    const FirebaseIdentity identity_;
    const KeychainStore keychain_;
    DeviceAuth deviceAuth_;
    const Logger log_;

    bool isSignedIn_ = false;
    std::optional<std::string> accountEmail_;
    std::optional<std::string> accountHandle_;
    bool isSigningIn_ = false;
    std::optional<std::string> lastError_;
    bool needsAccount_ = false;

    std::optional<tavrin::Secret> idToken_;
    std::optional<tavrin::Date> idTokenExpiry_;
    std::shared_ptr<Refresh> refreshInFlight_;
    tavrin::CancellationSource signInCancellation_;
    /// How often the stored session was changed, and how often the user was signed out.
    std::uint64_t saves_ = 0;
    std::uint64_t signOuts_ = 0;

    Deferred<void> restoration_;
    tavrin::CancellationSource restoreCancellation_;
    /// Cancelled by the destructor: who finds it so must not touch this object.
    tavrin::CancellationSource lifetime_;
    QCoro::Task<> restoring_;
    QCoro::Task<> refreshing_;
};

void tag_invoke(
    const boost::json::value_from_tag&,
    boost::json::value& json,
    const AuthService::Session& session);
// Each throws `tavrin::JSONDecodingError` when a required key is missing or a type is wrong.
AuthService::Session
tag_invoke(const boost::json::value_to_tag<AuthService::Session>&, const boost::json::value& json);
AuthService::Profile
tag_invoke(const boost::json::value_to_tag<AuthService::Profile>&, const boost::json::value& json);

} // namespace orvel
