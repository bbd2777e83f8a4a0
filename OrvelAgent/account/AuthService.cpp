// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthService.h"

#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/network/SecretJSON.h"
#include "core/Errors.h"
#include "core/JSON.h"
#include "core/SignInFailure.h"

#include <QPointer>

#include <boost/json/object.hpp>
#include <boost/json/value_from.hpp>
#include <boost/json/value_to.hpp>

#include <array>
#include <utility>

namespace orvel {

namespace {

constexpr tavrin::Seconds requestTimeout(60);

/// A token that ends sooner is refreshed first.
constexpr tavrin::Seconds leastRemainingLife(60);

constexpr const char* sessionKey = "session";

/// The layout before the session was one item.
constexpr std::array<const char*, 4> earlierKeys{
    "refreshToken", "uid", "accountEmail", "accountHandle"};

QCoro::Task<std::optional<tavrin::Secret>> noToken() {
    co_return std::nullopt;
}

QCoro::Task<std::optional<tavrin::Secret>> currentTokenOf(QPointer<AuthService> service) {
    if (!service) {
        co_return std::nullopt;
    }
    co_return co_await service->currentToken();
}

QCoro::Task<> signOutOf(QPointer<AuthService> service) {
    if (service) {
        service->signOut();
    }
    co_return;
}

} // namespace

AuthService::AuthService(const Dependencies& dependencies, Configuration configuration)
    : urlSession_(dependencies.urlSession),
      worker_(dependencies.worker),
      workspace_(dependencies.workspace),
      clock_(dependencies.clock),
      configuration_(std::move(configuration)),
      identity_(urlSession_, worker_, clock_, configuration_),
      keychain_(dependencies.keychain, configuration_.bundleIdentifier() + ".session"),
      deviceAuth_(dependencies.webAuthenticationSession, configuration_),
      log_(dependencies.logStore, "auth"),
      restoring_(restore(restoreCancellation_.token())) {}

AuthService::~AuthService() {
    lifetime_.cancel();
    restoreCancellation_.cancel();
    signInCancellation_.cancel();
    const std::shared_ptr<Refresh> refresh = cancelRefresh();
    restoration_.reject(std::make_exception_ptr(tavrin::TaskCancelled()));
    if (refresh) {
        refresh->token.resolve(std::nullopt);
    }
}

QCoro::Task<> AuthService::restored(tavrin::CancellationToken cancellation) {
    return restoration_.settled(std::move(cancellation));
}

QCoro::Task<> AuthService::restore(tavrin::CancellationToken cancellation) {
    std::optional<Session> session;
    try {
        session = co_await loadSession(cancellation);
    } catch (const std::exception&) {
        // Cancelled, or not to be read: then it is no session.
    }
    // A newer session has taken its place, or this object is gone.
    if (cancellation.isCancelled()) {
        co_return;
    }
    if (session) {
        isSignedIn_ = !session->refreshToken.isEmpty();
        accountEmail_ = std::move(session->email);
        accountHandle_ = std::move(session->handle);
        Q_EMIT changed();
    }
    if (!cancellation.isCancelled()) {
        restoration_.resolve();
    }
}

QCoro::Task<> AuthService::signIn() {
    if (isSigningIn_) {
        co_return;
    }
    signInCancellation_ = tavrin::CancellationSource();
    const tavrin::CancellationToken cancellation = signInCancellation_.token();
    const tavrin::CancellationToken lifetime = lifetime_.token();
    isSigningIn_ = true;
    lastError_.reset();
    needsAccount_ = false;
    log_.log("sign-in: opening browser");
    Q_EMIT changed();

    std::exception_ptr failure;
    try {
        // Whoever was told of the change may have destroyed this object.
        lifetime.throwIfCancelled();
        APIClient api = client(noToken);
        tavrin::Secret customToken = co_await deviceAuth_.authorize(std::move(api), cancellation);
        lifetime.throwIfCancelled();
        cancellation.throwIfCancelled();
        log_.log("sign-in: got custom token, exchanging for an ID token");
        const FirebaseIdentity::Tokens tokens =
            co_await identity_.signInWithCustomToken(std::move(customToken), cancellation);
        lifetime.throwIfCancelled();
        cancellation.throwIfCancelled();
        // A refresh of the session before this one must not come after it.
        const std::shared_ptr<Refresh> refresh = cancelRefresh();
        Session session;
        session.refreshToken = tokens.refreshToken;
        saveSession(session);
        isSignedIn_ = true;
        adopt(tokens);
        log_.log("sign-in: succeeded");
        restoreCancellation_.cancel();
        Q_EMIT changed();
        if (refresh) {
            refresh->token.resolve(tokens.idToken);
        }
        lifetime.throwIfCancelled();
        restoration_.resolve();
        lifetime.throwIfCancelled();
        co_await loadProfile(cancellation);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!lifetime.isCancelled()) {
        finishSignIn(failure);
    }
}

void AuthService::finishSignIn(const std::exception_ptr& failure) {
    // A failure that was on its way already stays one.
    if (failure && signInCancellation_.token().isCancelled() && tavrin::isCancellation(failure)) {
        log_.log("sign-in: taken back");
    } else if (failure) {
        noteFailedSignIn(failure);
    }
    isSigningIn_ = false;
    Q_EMIT changed();
}

void AuthService::noteFailedSignIn(const std::exception_ptr& failure) {
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

void AuthService::cancelSignIn() {
    signInCancellation_.cancel();
}

void AuthService::signOut() {
    const tavrin::CancellationToken lifetime = lifetime_.token();
    ++signOuts_;
    keychain_.remove(sessionKey);
    for (const char* key : earlierKeys) {
        keychain_.remove(key);
    }
    idToken_.reset();
    idTokenExpiry_.reset();
    const std::shared_ptr<Refresh> refresh = cancelRefresh();
    isSignedIn_ = false;
    accountEmail_.reset();
    accountHandle_.reset();
    needsAccount_ = false;
    lastError_.reset();
    restoreCancellation_.cancel();
    Q_EMIT changed();
    // Last: those who hear of it and those who wait go on here and now, and may destroy this
    // object.
    if (refresh) {
        refresh->token.resolve(std::nullopt);
    }
    if (!lifetime.isCancelled()) {
        restoration_.resolve();
    }
}

QCoro::Task<std::optional<tavrin::Secret>> AuthService::currentToken() {
    if (idToken_ && idTokenExpiry_ && *idTokenExpiry_ - clock_.now() > leastRemainingLife) {
        const tavrin::Secret token = *idToken_;
        co_return token;
    }
    // Nothing suspends between the look and the start, so there is never more than one.
    std::shared_ptr<Refresh> refresh = refreshInFlight_;
    if (!refresh) {
        refresh = std::make_shared<Refresh>();
        refreshInFlight_ = refresh;
        refreshing_ = refreshTokens(refresh);
    }
    co_await refresh->token.settled();
    co_return refresh->token.value();
}

QCoro::Task<> AuthService::refreshTokens(std::shared_ptr<Refresh> refresh) {
    const tavrin::CancellationToken cancellation = refresh->cancellation.token();
    std::exception_ptr failure;
    std::optional<tavrin::Secret> token;
    try {
        std::optional<Session> session = co_await loadSession(cancellation);
        cancellation.throwIfCancelled();
        if (session && !session->refreshToken.isEmpty()) {
            const FirebaseIdentity::Tokens tokens =
                co_await identity_.refresh(session->refreshToken, cancellation);
            cancellation.throwIfCancelled();
            session->refreshToken = tokens.refreshToken;
            saveSession(*session);
            adopt(tokens);
            token = tokens.idToken;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    // Whoever cancelled it has answered those who wait, and this object may be gone.
    if (cancellation.isCancelled()) {
        co_return;
    }
    refreshInFlight_.reset();
    if (failure) {
        failRefresh(failure);
    }
    // Nothing here may touch this object any more: whoever was told of a sign-out may have
    // destroyed it.
    refresh->token.resolve(std::move(token));
}

void AuthService::failRefresh(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const IdentityError& error) {
        if (FirebaseIdentity::isRevocation(error.message())) {
            log_.info("session revoked by server; signing out");
            signOut();
            return;
        }
    } catch (...) {
        // Judged below like every other failure that may pass.
    }
    log_.info(
        "token refresh failed transiently; staying signed in: {}", tavrin::description(failure));
}

std::shared_ptr<AuthService::Refresh> AuthService::cancelRefresh() {
    std::shared_ptr<Refresh> refresh = std::exchange(refreshInFlight_, nullptr);
    if (refresh) {
        refresh->cancellation.cancel();
    }
    return refresh;
}

APIClient::TokenProvider AuthService::tokenProvider() {
    return [service = QPointer<AuthService>(this)] {
        return currentTokenOf(service);
    };
}

APIClient::SessionExpiredHandler AuthService::sessionExpiredHandler() {
    return [service = QPointer<AuthService>(this)] {
        return signOutOf(service);
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
    co_return co_await keychain_.settled(either.token());
}

QCoro::Task<std::optional<AuthService::Session>>
AuthService::loadSession(tavrin::CancellationToken cancellation) const {
    const std::optional<tavrin::Secret> text = co_await keychain_.read(sessionKey, cancellation);
    if (!text) {
        co_return std::nullopt;
    }
    try {
        co_return boost::json::value_to<Session>(parseSecretJSON(text->text()));
    } catch (const std::exception&) {
        // What cannot be read is no session.
        co_return std::nullopt;
    }
}

void AuthService::saveSession(const Session& session) {
    ++saves_;
    const boost::json::value json = boost::json::value_from(session, wipingStorage());
    keychain_.write(sessionKey, tavrin::Secret(serializeSecretJSON(json)));
}

QCoro::Task<> AuthService::loadProfile(tavrin::CancellationToken cancellation) {
    const tavrin::CancellationToken lifetime = lifetime_.token();
    const std::uint64_t signOuts = signOuts_;
    std::optional<Session> session;
    Profile profile;
    try {
        const APIClient api = client(tokenProvider(), sessionExpiredHandler());
        profile =
            co_await api.send<Profile, Empty>("/api/v1/profile", "GET", nullptr, cancellation);
        lifetime.throwIfCancelled();
        // The session that is merged must be the one that is replaced.
        std::uint64_t saves = 0;
        do {
            saves = saves_;
            session = co_await loadSession(lifetime);
            lifetime.throwIfCancelled();
        } while (saves != saves_);
    } catch (const std::exception&) {
        // The session is as good without it.
        co_return;
    }
    if (signOuts != signOuts_) {
        // It was the profile of a session that is over.
        co_return;
    }
    if (!session) {
        session.emplace();
    }
    if (profile.handle && profile.handle->empty()) {
        profile.handle.reset();
    }
    if (profile.email) {
        session->email = profile.email;
        accountEmail_ = profile.email;
    }
    if (profile.handle) {
        session->handle = profile.handle;
        accountHandle_ = profile.handle;
    }
    if (profile.uid) {
        session->uid = profile.uid;
    }
    // Also when the keychain had none: without a refresh token it counts as signed out.
    saveSession(*session);
    Q_EMIT changed();
}

void AuthService::adopt(const FirebaseIdentity::Tokens& tokens) {
    idToken_ = tokens.idToken;
    idTokenExpiry_ = tokens.expiresAt;
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

void tag_invoke(
    const boost::json::value_from_tag&,
    boost::json::value& json,
    const AuthService::Session& session) {
    boost::json::object& object = json.emplace_object();
    object["refreshToken"] = session.refreshToken.text();
    const auto add = [&object](const char* key, const std::optional<std::string>& value) {
        if (value) {
            object[key] = *value;
        }
    };
    add("uid", session.uid);
    add("email", session.email);
    add("handle", session.handle);
}

AuthService::Session
tag_invoke(const boost::json::value_to_tag<AuthService::Session>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    return {
        tavrin::Secret(tavrin::stringAt(object, "refreshToken")),
        tavrin::optionalStringAt(object, "uid"),
        tavrin::optionalStringAt(object, "email"),
        tavrin::optionalStringAt(object, "handle")};
}

AuthService::Profile
tag_invoke(const boost::json::value_to_tag<AuthService::Profile>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    return {
        tavrin::optionalStringAt(object, "uid"),
        tavrin::optionalStringAt(object, "email"),
        tavrin::optionalStringAt(object, "handle")};
}

} // namespace orvel
