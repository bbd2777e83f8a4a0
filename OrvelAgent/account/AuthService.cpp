// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthService.h"

#include "OrvelAgent/account/AuthError.h"
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
      session_(
          dependencies.keychain,
          configuration_.bundleIdentifier(),
          identity_,
          client(),
          dependencies.clock,
          log_,
          {[this] { Q_EMIT changed(); },
           [this] {
               signOut();
           }}) {}

AuthService::~AuthService() {
    session_.close();
    signInCancellation_.cancel();
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

    Reference self{this, session_.lifetime()};
    DeviceAuth deviceAuth = deviceAuth_;
    FirebaseIdentity identity = identity_;
    Logger log = log_;
    APIClient api = client();
    const tavrin::CancellationToken cancellation = signInCancellation_.token();
    Q_EMIT changed();
    QCoro::Task<FirebaseIdentity::Tokens> tokens = signInTokens(
        std::move(deviceAuth), std::move(identity), std::move(api), std::move(log), cancellation);
    return runSignIn(std::move(self), std::move(tokens), cancellation);
}

QCoro::Task<> AuthService::runSignIn(
    Reference self,
    QCoro::Task<FirebaseIdentity::Tokens> tokens,
    tavrin::CancellationToken cancellation) {
    std::exception_ptr failure;
    try {
        const FirebaseIdentity::Tokens received = co_await tokens;
        if (AuthService* const service = self.get()) {
            service->session_.begin(received);
        }
        if (AuthService* const service = self.get()) {
            co_await service->session_.loadProfile(cancellation);
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (AuthService* const service = self.get()) {
        service->finishSignIn(failure);
    }
}

void AuthService::finishSignIn(const std::exception_ptr& failure) {
    // Report any other failure: it happened before the cancellation.
    if (failure && signInCancellation_.token().isCancelled() && tavrin::isCancellation(failure)) {
        log_.log("sign-in: taken back");
    } else if (failure) {
        recordFailedSignIn(failure);
    }
    isSigningIn_ = false;
    Q_EMIT changed();
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

void AuthService::signOut() {
    needsAccount_ = false;
    lastError_.reset();
    session_.end();
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

APIClient AuthService::client() {
    return {
        urlSession_, worker_, configuration_, configuration_.apiBaseURL(), noToken, requestTimeout};
}

} // namespace orvel
