// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/UserSession.h"

#include "OrvelAgent/network/TokenUnavailable.h"

#include <exception>
#include <utility>

namespace orvel {

UserSession::UserSession(
    Keychain& keychain,
    const std::string& bundleIdentifier,
    FirebaseIdentity identity,
    APIClient api,
    Clock& clock,
    Logger log,
    Events events)
    : api_(std::move(api)),
      log_(log),
      events_(std::move(events)),
      sessions_(std::make_shared<KeychainStore>(keychain, bundleIdentifier)),
      tokens_(
          std::move(identity),
          sessions_,
          clock,
          std::move(log),
          events_.revoked,
          [this](const KeychainStore::Reading& stored) { return follow(stored); }),
      restoring_(restore(restoreCancellation_.token())) {}

UserSession::~UserSession() {
    close();
}

void UserSession::close() {
    lifetime_.cancel();
    restoreCancellation_.cancel();
    restoration_.reject(std::make_exception_ptr(tavrin::TaskCancelled()));
}

QCoro::Task<> UserSession::restore(tavrin::CancellationToken cancellation) {
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

void UserSession::begin(const FirebaseIdentity::Tokens& tokens) {
    // Also cancels a refresh of the previous session.
    Waiters waiters{restoration_, tokens_.replace(tokens), tokens.idToken, endAccount()};
    sessions_->save({tokens.refreshToken, {}, {}, {}});
    isSignedIn_ = true;
    accountEmail_.reset();
    accountHandle_.reset();
    log_.log("sign-in: succeeded");
    restoreCancellation_.cancel();
    publish(std::move(waiters));
}

void UserSession::end() {
    sessions_->remove();
    Waiters waiters{restoration_, tokens_.replace(std::nullopt), std::nullopt, endAccount()};
    isSignedIn_ = false;
    accountEmail_.reset();
    accountHandle_.reset();
    restoreCancellation_.cancel();
    publish(std::move(waiters));
}

tavrin::CancellationSource UserSession::endAccount() {
    account_.clear();
    return std::exchange(sessionEnd_, tavrin::CancellationSource());
}

QCoro::Task<std::optional<AccountSession>>
UserSession::current(tavrin::CancellationToken cancellation) {
    return followed(reference(), std::move(cancellation));
}

QCoro::Task<std::optional<AccountSession>>
UserSession::followed(Reference self, tavrin::CancellationToken cancellation) {
    const std::shared_ptr<KeychainStore> sessions = self.session->sessions_;
    // A keychain that the user has not unlocked is read again only when a token is needed.
    if (!sessions->isUnreadable()) {
        const tavrin::LinkedCancellation either(cancellation, self.lifetime);
        const KeychainStore::Reading stored =
            co_await KeychainStore::loadLatest(sessions, either.token());
        if (UserSession* const user = self.get()) {
            user->follow(stored);
        }
    }
    UserSession* user = self.get();
    if (user == nullptr) {
        throw tavrin::TaskCancelled();
    }
    if (!user->isSignedIn_) {
        co_return std::nullopt;
    }
    if (user->account_.empty()) {
        const AccountSession session = user->accountSession();
        co_await fetchProfile(self, cancellation);
        user = self.get();
        if (user == nullptr || session.ended.isCancelled()) {
            co_return std::nullopt;
        }
    }
    co_return user->accountSession();
}

AccountSession UserSession::accountSession() {
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

QCoro::Task<> UserSession::expire(Reference self, tavrin::CancellationToken session) {
    UserSession* user = self.get();
    if (user == nullptr || session.isCancelled()) {
        co_return;
    }
    KeychainStore::Reading stored;
    try {
        stored = co_await KeychainStore::loadLatest(user->sessions_, self.lifetime);
    } catch (const tavrin::TaskCancelled&) {
        co_return;
    }
    user = self.get();
    // The stored session may be another one, of another process.
    if (user == nullptr || session.isCancelled() || !user->follow(stored)) {
        co_return;
    }
    user = self.get();
    if (user != nullptr) {
        const auto revoked = user->events_.revoked;
        revoked();
    }
}

QCoro::Task<std::optional<tavrin::Secret>>
UserSession::tokenOf(Reference self, tavrin::CancellationToken session) {
    session.throwIfCancelled();
    UserSession* user = self.get();
    if (user == nullptr) {
        throw tavrin::TaskCancelled();
    }
    std::optional<tavrin::Secret> token = co_await user->currentToken();
    session.throwIfCancelled();
    user = self.get();
    if (user == nullptr) {
        throw tavrin::TaskCancelled();
    }
    if (!token) {
        throw TokenUnavailable(
            "The sign-in could not be refreshed: " + user->tokens_.lastFailure());
    }
    co_return token;
}

/// Returns whether the session goes on. Publishes its end or its replacement by another process;
/// receivers may then destroy this object.
bool UserSession::follow(const KeychainStore::Reading& stored) {
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
    Waiters waiters{restoration_, tokens_.replace(std::nullopt), std::nullopt, endAccount()};
    isSignedIn_ = isSignedIn;
    account_ = account;
    accountEmail_ = isSignedIn ? session->email : std::nullopt;
    accountHandle_ = isSignedIn ? session->handle : std::nullopt;
    publish(std::move(waiters));
    return false;
}

QCoro::Task<std::optional<tavrin::PlatformError>>
UserSession::stored(tavrin::CancellationToken cancellation) {
    const tavrin::LinkedCancellation either(cancellation, lifetime_.token());
    co_return co_await sessions_->settled(either.token());
}

QCoro::Task<> UserSession::loadProfile(tavrin::CancellationToken cancellation) {
    return tryLoadProfile(reference(), std::move(cancellation));
}

QCoro::Task<> UserSession::tryLoadProfile(Reference self, tavrin::CancellationToken cancellation) {
    try {
        co_await fetchProfile(std::move(self), std::move(cancellation));
    } catch (const std::exception&) {
        // The sign-in is complete without a profile.
    }
}

QCoro::Task<> UserSession::fetchProfile(Reference self, tavrin::CancellationToken cancellation) {
    UserSession* user = self.get();
    if (user == nullptr) {
        co_return;
    }
    const APIClient api = user->api_.authorizedBy(user->accountSession());
    const std::shared_ptr<KeychainStore> sessions = user->sessions_;
    const tavrin::CancellationToken ended = user->sessionEnd_.token();
    const tavrin::LinkedCancellation either(cancellation, self.lifetime);
    const Profile profile =
        co_await api.send<Profile, Empty>(Profile::path, "GET", nullptr, either.token());
    const KeychainStore::Reading stored =
        co_await KeychainStore::loadLatest(sessions, either.token());
    user = self.get();
    if (user == nullptr || ended.isCancelled() || !user->follow(stored)) {
        co_return;
    }
    user = self.get();
    if (user != nullptr) {
        user->mergeProfile(profile, stored);
    }
}

void UserSession::mergeProfile(const Profile& profile, const KeychainStore::Reading& stored) {
    Session session = stored.session.value_or(Session());
    session.merge(profile);
    account_ = accountOf(session.uid, session.email, session.handle);
    accountEmail_ = session.email;
    accountHandle_ = session.handle;
    if (!stored.isUnreadable) {
        sessions_->save(session);
    }
    publish();
}

/// Only this function reports changes. Receivers and waiters run inside it and may destroy this
/// object, so do not use it after the call.
void UserSession::publish(Waiters waiters) {
    const auto changed = events_.changed;
    changed();
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

} // namespace orvel
