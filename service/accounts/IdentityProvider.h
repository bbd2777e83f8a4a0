// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/accounts/Account.h"
#include "service/accounts/SessionStore.h"
#include "service/support/OneTimeTokens.h"

#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// What the identity provider does not do, with its reason in its own words, such as
/// "INVALID_REFRESH_TOKEN".
class IdentityRefusal final : public std::exception {
public:
    explicit IdentityRefusal(std::string message) : message_(std::move(message)) {}

    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

/// Stands in for the identity provider: turns a custom token into a session, and the session's
/// refresh token into ID tokens. Usable from several threads.
///
/// Every token is random and begins with a word of its own, so that a search finds one that has got
/// somewhere it does not belong. A refresh token stays the same as long as its session.
class IdentityProvider final {
public:
    static constexpr std::string_view customTokenPrefix = "orvel-custom-";
    static constexpr std::string_view refreshTokenPrefix = "orvel-refresh-";
    static constexpr std::string_view idTokenPrefix = "orvel-id-";

    struct Tokens {
        std::string uid;
        std::string idToken;
        std::string refreshToken;
    };

    enum class Bearer {
        /// Not an ID token of this provider.
        Stranger,
        Valid,
        /// The ID token has ended, or is not known any more.
        Expired,
        SessionEnded,
    };

    /// Throws `ServiceError`, as everything does that needs the store.
    IdentityProvider(
        const std::filesystem::path& store,
        std::vector<Account> accounts,
        std::chrono::seconds idTokenLifetime,
        Now now);

    [[nodiscard]] const std::vector<Account>& accounts() const { return accounts_; }
    [[nodiscard]] std::chrono::seconds idTokenLifetime() const { return idTokenLifetime_; }

    /// For one use within one hour.
    [[nodiscard]] std::string mintCustomToken(std::string uid);

    /// Throws `IdentityRefusal`, as the next two.
    [[nodiscard]] Tokens signIn(std::string_view customToken);
    [[nodiscard]] Tokens startSession(const std::string& uid);
    [[nodiscard]] Tokens refresh(const std::string& refreshToken);

    [[nodiscard]] Bearer check(std::string_view token) const;
    /// Whose ID token it is, if it is one of an account.
    [[nodiscard]] const Account* account(std::string_view idToken) const;

    /// Ends the sessions of the account, or all of them when `uid` is empty: their refresh tokens
    /// are refused with `message`. Gives their number.
    std::size_t
    revokeSessions(const std::string& uid, const std::string& message, bool endsIDTokens);
    /// Gives their number.
    std::size_t expireIDTokens();
    /// The account's sign-ins and refreshes are refused while it is disabled.
    void setUserDisabled(const std::string& uid, bool isDisabled);

private:
    [[nodiscard]] std::string mintIDToken(std::int64_t session);
    void requireUser(const std::string& uid) const;

    const std::vector<Account> accounts_;
    const std::chrono::seconds idTokenLifetime_;
    const Now now_;
    OneTimeTokens<std::string> customTokens_;
    SessionStore sessions_;
    mutable std::mutex mutex_;
    std::set<std::string, std::less<>> disabled_;
};

} // namespace orvel::service
