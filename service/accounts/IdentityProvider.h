// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/accounts/Account.h"
#include "service/accounts/SessionStore.h"
#include "service/support/OneTimeTokens.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

/// A request that the identity provider refuses. The message is its error code, such as
/// "INVALID_REFRESH_TOKEN".
class IdentityRefusal final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Stands in for the identity provider: exchanges a custom token for a session, and the session's
/// refresh token for ID tokens. Thread-safe.
///
/// Every token is random and starts with the prefix of its kind, so that a search for the prefixes
/// finds leaked tokens. The refresh token of a session never changes. A session ends after seven
/// days.
class IdentityProvider final {
public:
    static constexpr std::string_view customTokenPrefix = "orvel-custom-";
    static constexpr std::string_view refreshTokenPrefix = "orvel-refresh-";
    static constexpr std::string_view idTokenPrefix = "orvel-id-";

    static constexpr std::chrono::hours sessionLifetime{24 * 7};

    struct Tokens {
        std::string uid;
        std::string idToken;
        std::string refreshToken;
    };

    enum class Bearer {
        /// Lacks the prefix of this provider's ID tokens.
        NotAnIDToken,
        Valid,
        /// The ID token has expired, or this provider does not know it.
        Expired,
        SessionEnded,
    };

    /// Throws `ServiceError`, as do all functions that use the store.
    IdentityProvider(
        const std::filesystem::path& store,
        std::vector<Account> accounts,
        std::chrono::seconds idTokenLifetime,
        Now now);

    [[nodiscard]] const std::vector<Account>& accounts() const { return accounts_; }
    [[nodiscard]] std::chrono::seconds idTokenLifetime() const { return idTokenLifetime_; }

    /// Valid once, for one hour.
    [[nodiscard]] std::string mintCustomToken(std::string uid);

    /// Throws `IdentityRefusal`, as do the next two.
    [[nodiscard]] Tokens signIn(std::string_view customToken);
    [[nodiscard]] Tokens startSession(const std::string& uid);
    [[nodiscard]] Tokens refresh(const std::string& refreshToken);

    [[nodiscard]] Bearer check(std::string_view token) const;
    /// The account that the ID token belongs to, or null.
    [[nodiscard]] const Account* account(std::string_view idToken) const;

    /// Ends the sessions of the account, or all of them if `uid` is empty. Their refresh tokens are
    /// refused with `message`. Returns their number.
    std::size_t
    revokeSessions(const std::string& uid, const std::string& message, bool endsIDTokens);
    /// Returns their number.
    std::size_t expireIDTokens();
    /// While the account is disabled, its sign-ins and refreshes are refused.
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
