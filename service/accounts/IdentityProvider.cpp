// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/IdentityProvider.h"

#include <utility>

namespace orvel::service {

namespace {

constexpr std::chrono::hours customTokenLifetime(1);

} // namespace

IdentityProvider::IdentityProvider(
    const std::filesystem::path& store,
    std::vector<Account> accounts,
    std::chrono::seconds idTokenLifetime,
    Now now)
    : accounts_(std::move(accounts)),
      idTokenLifetime_(idTokenLifetime),
      now_(now),
      customTokens_(std::string(customTokenPrefix), customTokenLifetime, std::move(now)),
      sessions_(store) {}

std::string IdentityProvider::mintCustomToken(std::string uid) {
    return customTokens_.mint(std::move(uid));
}

IdentityProvider::Tokens IdentityProvider::signIn(std::string_view customToken) {
    const auto uid = customTokens_.take(customToken);
    if (!uid) {
        throw IdentityRefusal("INVALID_CUSTOM_TOKEN");
    }
    return startSession(*uid);
}

IdentityProvider::Tokens IdentityProvider::startSession(const std::string& uid) {
    requireUser(uid);
    auto refreshToken = randomToken(refreshTokenPrefix);
    const auto now = now_();
    const auto session = sessions_.add(uid, refreshToken, now + sessionLifetime, now);
    return {uid, mintIDToken(session), std::move(refreshToken)};
}

IdentityProvider::Tokens IdentityProvider::refresh(const std::string& refreshToken) {
    const auto session = sessions_.find(refreshToken);
    if (!session) {
        throw IdentityRefusal("INVALID_REFRESH_TOKEN");
    }
    if (!session->revocation.empty()) {
        throw IdentityRefusal(session->revocation);
    }
    if (session->end <= now_()) {
        throw IdentityRefusal("TOKEN_EXPIRED");
    }
    requireUser(session->uid);
    return {session->uid, mintIDToken(session->id), refreshToken};
}

IdentityProvider::Bearer IdentityProvider::check(std::string_view token) const {
    if (!token.starts_with(idTokenPrefix)) {
        return Bearer::NotAnIDToken;
    }
    const auto found = sessions_.bearer(token);
    const auto now = now_();
    if (found && found->sessionEnd <= now) {
        return Bearer::SessionEnded;
    }
    if (!found || found->tokenEnd <= now) {
        return Bearer::Expired;
    }
    return found->hasEnded ? Bearer::SessionEnded : Bearer::Valid;
}

const Account* IdentityProvider::account(std::string_view idToken) const {
    const auto found = sessions_.bearer(idToken);
    return found ? findAccount(accounts_, found->uid) : nullptr;
}

std::size_t IdentityProvider::revokeSessions(
    const std::string& uid, const std::string& message, bool endsIDTokens) {
    return sessions_.revoke(uid, message, endsIDTokens);
}

std::size_t IdentityProvider::expireIDTokens() {
    return sessions_.endIDTokens(now_());
}

void IdentityProvider::setUserDisabled(const std::string& uid, bool isDisabled) {
    const std::lock_guard lock(mutex_);
    if (isDisabled) {
        disabled_.insert(uid);
    } else {
        disabled_.erase(uid);
    }
}

std::string IdentityProvider::mintIDToken(std::int64_t session) {
    auto token = randomToken(idTokenPrefix);
    const auto now = now_();
    sessions_.addIDToken(session, token, now + idTokenLifetime_, now);
    return token;
}

void IdentityProvider::requireUser(const std::string& uid) const {
    if (findAccount(accounts_, uid) == nullptr) {
        throw IdentityRefusal("USER_NOT_FOUND");
    }
    const std::lock_guard lock(mutex_);
    if (disabled_.contains(uid)) {
        throw IdentityRefusal("USER_DISABLED");
    }
}

} // namespace orvel::service
