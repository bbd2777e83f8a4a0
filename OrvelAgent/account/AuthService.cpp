// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthService.h"

#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/network/TokenUnavailable.h"
#include "core/Errors.h"
#include "core/SignInFailure.h"

#include <utility>

namespace orvel {

namespace {

constexpr tavrin::Seconds requestTimeout(60);

QCoro::Task<std::optional<tavrin::Secret>> noToken() {
    co_return std::nullopt;
}

QCoro::Task<> nothing() {
    co_return;
}

/// The tokens of a sign-in in the browser.
QCoro::Task<FirebaseIdentity::Tokens> signInTokens(
    DeviceAuth deviceAuth,
    FirebaseIdentity identity,
    APIClient api,
    Logger log,
    tavrin::CancellationToken cancellation) {
    tavrin::Secret customToken = co_await deviceAuth.authorize(std::move(api), cancellation);
    cancellation.throwIfCancelled();
    log.log("sign-in: got custom token, exchanging for an ID token");
    FirebaseIdentity::Tokens tokens =
        co_await identity.signInWithCustomToken(std::move(customToken), cancellation);
    cancellation.throwIfCancelled();
    co_return tokens;
}

} // namespace

AuthService::AuthService(const Dependencies& dependencies, Configuration configuration)
    : urlSession_(dependencies.urlSession),
      worker_(dependencies.worker),
      workspace_(dependencies.workspace),
      configuration_(std::move(configuration)),
      identity_(urlSession_, worker_, dependencies.clock, configuration_),
      deviceAuth_(dependencies.webAuthenticationSession, configuration_),
      log_(dependencies.logStore, "auth"),
      sessions_(std::make_shared<KeychainStore>(
          dependencies.keychain, configuration_.bundleIdentifier())),
      tokens_(
          identity_,
          *sessions_,
          dependencies.clock,
          log_,
          [this] { signOut(); },
          [this](const KeychainStore::Reading& stored) { return follow(stored); }),
      restoring_(restore(restoreCancellation_.token())) {}

AuthService::~AuthService() {
    lifetime_.cancel();
    restoreCancellation_.cancel();
    signInCancellation_.cancel();
    restoration_.reject(std::make_exception_ptr(tavrin::TaskCancelled()));
}

QCoro::Task<> AuthService::restore(tavrin::CancellationToken cancellation) {
    std::optional<Session> session;
    try {
        session = (co_await sessions_->load(cancellation)).session;
    } catch (const std::exception&) {
        // Treat an unreadable session as missing.
    }
    // Cancelled: the user has signed in or out meanwhile, or this object was destroyed.
    if (cancellation.isCancelled()) {
        co_return;
    }
    if (!session) {
        restoration_.resolve();
        co_return;
    }
    isSignedIn_ = !session->refreshToken.isEmpty();
    account_ = accountOf(session->uid, session->email, session->handle);
    accountEmail_ = std::move(session->email);
    accountHandle_ = std::move(session->handle);
    publish({restoration_, std::nullopt, std::nullopt, std::nullopt});
}

QCoro::Task<> AuthService::signIn() {
    if (isSigningIn_) {
        return nothing();
    }
    signInCancellation_ = tavrin::CancellationSource();
    isSigningIn_ = true;
    lastError_.reset();
    needsAccount_ = false;
    log_.log("sign-in: opening browser");

    Reference self = reference();
    DeviceAuth deviceAuth = deviceAuth_;
    FirebaseIdentity identity = identity_;
    Logger log = log_;
    APIClient api = client(noToken);
    APIClient profileClient = client(tokenProvider(), sessionExpiredHandler());
    const tavrin::CancellationToken cancellation = signInCancellation_.token();
    publish();
    QCoro::Task<FirebaseIdentity::Tokens> tokens = signInTokens(
        std::move(deviceAuth), std::move(identity), std::move(api), std::move(log), cancellation);
    return runSignIn(std::move(self), std::move(tokens), std::move(profileClient), cancellation);
}

QCoro::Task<> AuthService::runSignIn(
    Reference self,
    QCoro::Task<FirebaseIdentity::Tokens> tokens,
    APIClient profileClient,
    tavrin::CancellationToken cancellation) {
    std::exception_ptr failure;
    try {
        const FirebaseIdentity::Tokens received = co_await tokens;
        if (AuthService* const service = self.get()) {
            service->acceptTokens(received);
        }
        co_await loadProfile(self, std::move(profileClient), cancellation);
    } catch (...) {
        failure = std::current_exception();
    }
    if (AuthService* const service = self.get()) {
        service->finishSignIn(failure);
    }
}

void AuthService::acceptTokens(const FirebaseIdentity::Tokens& tokens) {
    // Also cancels a refresh of the previous session.
    Waiters waiters{restoration_, tokens_.replace(tokens), tokens.idToken, endSession()};
    sessions_->save({tokens.refreshToken, {}, {}, {}});
    isSignedIn_ = true;
    log_.log("sign-in: succeeded");
    restoreCancellation_.cancel();
    publish(std::move(waiters));
}

void AuthService::finishSignIn(const std::exception_ptr& failure) {
    // Report any other failure: it happened before the cancellation.
    if (failure && signInCancellation_.token().isCancelled() && tavrin::isCancellation(failure)) {
        log_.log("sign-in: taken back");
    } else if (failure) {
        recordFailedSignIn(failure);
    }
    isSigningIn_ = false;
    publish();
}

void AuthService::recordFailedSignIn(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const AuthError& error) {
        if (error.failure() == tavrin::SignInFailure(tavrin::SignInFailure::NoAccount())) {
            needsAccount_ = true;
            lastError_ = error.message();
            log_.log("sign-in: no account for that identity; opening the website");
            openAccountPage();
            return;
        }
        lastError_ = error.what();
    } catch (...) {
        lastError_ = tavrin::description(failure);
    }
    log_.error("sign-in FAILED: {}", *lastError_);
}

tavrin::CancellationSource AuthService::endSession() {
    account_.clear();
    return std::exchange(sessionEnd_, tavrin::CancellationSource());
}

void AuthService::signOut() {
    sessions_->remove();
    Waiters waiters{restoration_, tokens_.replace(std::nullopt), std::nullopt, endSession()};
    isSignedIn_ = false;
    accountEmail_.reset();
    accountHandle_.reset();
    needsAccount_ = false;
    lastError_.reset();
    restoreCancellation_.cancel();
    publish(std::move(waiters));
}

QCoro::Task<std::optional<AccountSession>>
AuthService::session(tavrin::CancellationToken cancellation) {
    return currentSession(reference(), std::move(cancellation));
}

QCoro::Task<std::optional<AccountSession>>
AuthService::currentSession(Reference self, tavrin::CancellationToken cancellation) {
    const KeychainStore::Reading stored =
        co_await KeychainStore::loadLatest(self.service->sessions_, cancellation);
    AuthService* service = self.get();
    if (service == nullptr) {
        throw tavrin::TaskCancelled();
    }
    service->follow(stored);
    service = self.get();
    if (service == nullptr || !service->isSignedIn_) {
        co_return std::nullopt;
    }
    if (service->account_.empty()) {
        const AccountSession session = service->accountSession();
        co_await fetchProfile(self, service->client({}).authorizedBy(session), cancellation);
        service = self.get();
        if (service == nullptr || session.ended.isCancelled()) {
            co_return std::nullopt;
        }
    }
    co_return service->accountSession();
}

AccountSession AuthService::accountSession() {
    const Reference self = reference();
    const tavrin::CancellationToken ended = sessionEnd_.token();
    return {
        account_,
        ended,
        [self, ended] { return tokenOf(self, ended); },
        [self, ended] {
            return expire(self, ended);
        }};
}

QCoro::Task<> AuthService::expire(Reference self, tavrin::CancellationToken session) {
    AuthService* service = self.get();
    if (service == nullptr || session.isCancelled()) {
        co_return;
    }
    KeychainStore::Reading stored;
    try {
        stored = co_await KeychainStore::loadLatest(service->sessions_, self.lifetime);
    } catch (const tavrin::TaskCancelled&) {
        co_return;
    }
    service = self.get();
    // The stored session may be another one, of another process.
    if (service == nullptr || session.isCancelled() || !service->follow(stored)) {
        co_return;
    }
    service = self.get();
    if (service != nullptr) {
        service->signOut();
    }
}

QCoro::Task<std::optional<tavrin::Secret>>
AuthService::tokenOf(Reference self, tavrin::CancellationToken session) {
    session.throwIfCancelled();
    AuthService* service = self.get();
    if (service == nullptr) {
        throw tavrin::TaskCancelled();
    }
    std::optional<tavrin::Secret> token = co_await service->currentToken();
    session.throwIfCancelled();
    service = self.get();
    if (service == nullptr) {
        throw tavrin::TaskCancelled();
    }
    if (!token) {
        throw TokenUnavailable(
            "The sign-in could not be refreshed: " + service->tokens_.lastFailure());
    }
    co_return token;
}

/// Returns whether the session goes on. Publishes its end or its replacement by another process;
/// receivers may then destroy this object.
bool AuthService::follow(const KeychainStore::Reading& stored) {
    if (!stored.isChangedElsewhere) {
        return true;
    }
    sessions_->accept(stored);
    const std::optional<Session>& session = stored.session;
    const bool isSignedIn = session && !session->refreshToken.isEmpty();
    const std::string account =
        isSignedIn ? accountOf(session->uid, session->email, session->handle) : std::string();
    if (isSignedIn && !account.empty() && account == account_) {
        return true;
    }
    log_.log("{}", isSignedIn ? "another process has signed in" : "another process has signed out");
    Waiters waiters{restoration_, tokens_.replace(std::nullopt), std::nullopt, endSession()};
    isSignedIn_ = isSignedIn;
    account_ = account;
    accountEmail_ = isSignedIn ? session->email : std::nullopt;
    accountHandle_ = isSignedIn ? session->handle : std::nullopt;
    publish(std::move(waiters));
    return false;
}

APIClient::TokenProvider AuthService::tokenProvider() {
    return [self = reference()] {
        AuthService* const service = self.get();
        return service != nullptr ? service->currentToken() : noToken();
    };
}

APIClient::SessionExpiredHandler AuthService::sessionExpiredHandler() {
    return [self = reference()] {
        if (AuthService* const service = self.get()) {
            service->signOut();
        }
        return nothing();
    };
}

void AuthService::openAccountPage() {
    workspace_.openURL(
        configuration_.webBaseURL(),
        [log = log_](const std::optional<tavrin::PlatformError>& failure) {
            if (failure) {
                log.error("could not open the website: {}", failure->what());
            }
        });
}

QCoro::Task<std::optional<tavrin::PlatformError>>
AuthService::stored(tavrin::CancellationToken cancellation) {
    tavrin::CancellationSource either;
    const auto cancel = [either]() mutable {
        either.cancel();
    };
    const auto byCaller = cancellation.onCancel(cancel);
    const auto byEnd = lifetime_.token().onCancel(cancel);
    co_return co_await sessions_->settled(either.token());
}

QCoro::Task<>
AuthService::loadProfile(Reference self, APIClient api, tavrin::CancellationToken cancellation) {
    try {
        co_await fetchProfile(std::move(self), std::move(api), std::move(cancellation));
    } catch (const std::exception&) {
        // The sign-in is complete without a profile.
    }
}

QCoro::Task<>
AuthService::fetchProfile(Reference self, APIClient api, tavrin::CancellationToken cancellation) {
    AuthService* service = self.get();
    if (service == nullptr) {
        co_return;
    }
    const std::shared_ptr<KeychainStore> sessions = service->sessions_;
    const tavrin::CancellationToken ended = service->sessionEnd_.token();
    const Profile profile =
        co_await api.send<Profile, Empty>(Profile::path, "GET", nullptr, std::move(cancellation));
    const KeychainStore::Reading stored =
        co_await KeychainStore::loadLatest(sessions, self.lifetime);
    service = self.get();
    if (service == nullptr || ended.isCancelled() || (stored.session && !service->follow(stored))) {
        co_return;
    }
    service = self.get();
    if (service != nullptr) {
        service->mergeProfile(profile, stored);
    }
}

void AuthService::mergeProfile(const Profile& profile, const KeychainStore::Reading& stored) {
    // Save the profile even without a stored session. An empty refresh token means signed out.
    Session session = stored.session.value_or(Session());
    session.merge(profile);
    account_ = accountOf(session.uid, session.email, session.handle);
    if (profile.email) {
        accountEmail_ = profile.email;
    }
    if (profile.handle) {
        accountHandle_ = profile.handle;
    }
    if (!stored.isUnreadable) {
        sessions_->save(session);
    }
    publish();
}

/// Only this function emits `changed`. Receivers and waiters run inside it and may destroy this
/// object, so do not use it after the signal.
void AuthService::publish(Waiters waiters) {
    Q_EMIT changed();
    if (waiters.session) {
        waiters.session->cancel();
    }
    if (waiters.refresh) {
        waiters.refresh->resolve(std::move(waiters.token));
    }
    if (waiters.restoration) {
        waiters.restoration->resolve();
    }
}

APIClient AuthService::client(
    APIClient::TokenProvider tokenProvider, APIClient::SessionExpiredHandler onExpired) {
    return {
        urlSession_,
        worker_,
        configuration_,
        configuration_.apiBaseURL(),
        std::move(tokenProvider),
        requestTimeout,
        std::move(onExpired)};
}

} // namespace orvel
