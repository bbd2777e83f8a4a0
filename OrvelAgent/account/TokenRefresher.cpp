// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/TokenRefresher.h"

#include "OrvelAgent/account/IdentityError.h"
#include "core/Errors.h"
#include "platform/Clock.h"

#include <exception>
#include <utility>

namespace orvel {

namespace {

bool isRevocation(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const IdentityError& error) {
        return FirebaseIdentity::isRevocation(error.message());
    } catch (...) {
        return false;
    }
}

} // namespace

TokenRefresher::TokenRefresher(
    FirebaseIdentity identity,
    std::shared_ptr<KeychainStore> sessions,
    Clock& clock,
    Logger log,
    std::function<void()> onRevoked,
    std::function<bool(const KeychainStore::Reading&)> follow)
    : identity_(std::move(identity)),
      sessions_(std::move(sessions)),
      clock_(clock),
      log_(std::move(log)),
      onRevoked_(std::move(onRevoked)),
      follow_(std::move(follow)) {}

TokenRefresher::~TokenRefresher() {
    if (const auto waiting = replace(std::nullopt)) {
        waiting->resolve(std::nullopt);
    }
}

QCoro::Task<TokenRefresher::Token> TokenRefresher::currentToken() {
    if (idToken_ && idTokenExpiry_ && *idTokenExpiry_ - clock_.now() > leastRemainingLife) {
        const tavrin::Secret token = *idToken_;
        co_return token;
    }
    // There is no `co_await` between the check and the start, so at most one refresh runs.
    Refresh refresh;
    if (refreshInFlight_) {
        refresh = *refreshInFlight_;
    } else {
        refreshInFlight_ = refresh;
        refreshing_ = run(refresh);
    }
    co_await refresh.token.settled();
    co_return refresh.token.value();
}

std::optional<Deferred<TokenRefresher::Token>>
TokenRefresher::replace(const std::optional<FirebaseIdentity::Tokens>& tokens) {
    idToken_.reset();
    idTokenExpiry_.reset();
    if (tokens) {
        setToken(*tokens);
    }
    std::optional<Refresh> ended = std::exchange(refreshInFlight_, std::nullopt);
    if (!ended) {
        return std::nullopt;
    }
    ended->cancellation.cancel();
    return ended->token;
}

QCoro::Task<> TokenRefresher::run(Refresh refresh) {
    const tavrin::CancellationToken cancellation = refresh.cancellation.token();
    std::optional<tavrin::Secret> token;
    std::exception_ptr failure;
    try {
        const KeychainStore::Reading stored = co_await sessions_->load(cancellation);
        cancellation.throwIfCancelled();
        const auto follow = follow_;
        if (!follow(stored)) {
            co_return;
        }
        std::optional<Session> session = stored.session;
        lastFailure_ =
            stored.isUnreadable ? "The keychain could not be read." : "There is no stored session.";
        if (session && !session->refreshToken.isEmpty()) {
            const FirebaseIdentity::Tokens tokens =
                co_await identity_.refresh(session->refreshToken, cancellation);
            cancellation.throwIfCancelled();
            // Another process may have signed in or out meanwhile.
            const KeychainStore::Reading now =
                co_await KeychainStore::loadLatest(sessions_, cancellation);
            cancellation.throwIfCancelled();
            if (!follow(now)) {
                co_return;
            }
            if (now.session) {
                session = now.session;
            }
            session->refreshToken = tokens.refreshToken;
            sessions_->save(*session);
            setToken(tokens);
            token = tokens.idToken;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    // Cancelled by `replace`: its caller resolves the result, and this object may be destroyed.
    if (cancellation.isCancelled()) {
        co_return;
    }
    if (failure && isRevocation(failure)) {
        KeychainStore::Reading now;
        try {
            now = co_await sessions_->load(cancellation);
        } catch (const tavrin::TaskCancelled&) {
            co_return;
        }
        const auto follow = follow_;
        // The revoked session may not be the stored one any more.
        if (cancellation.isCancelled() || !follow(now)) {
            co_return;
        }
        log_.info("session revoked by server; signing out");
        const std::function<void()> onRevoked = onRevoked_;
        onRevoked();
        co_return;
    }
    if (failure) {
        lastFailure_ = tavrin::description(failure);
        log_.info("token refresh failed transiently; staying signed in: {}", lastFailure_);
    }
    refreshInFlight_.reset();
    refresh.token.resolve(std::move(token));
}

void TokenRefresher::setToken(const FirebaseIdentity::Tokens& tokens) {
    idToken_ = tokens.idToken;
    idTokenExpiry_ = tokens.expiresAt;
}

} // namespace orvel
