// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/Database.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// The sessions that the service has given out, in tables of their own beside the records.
///
/// Of tokens only hashes are kept. Usable from several threads. Everything fails with
/// `ServiceError`.
class SessionStore final {
public:
    using Time = std::chrono::system_clock::time_point;

    /// A session as its refresh token finds it.
    struct Session {
        std::int64_t id = 0;
        std::string uid;
        /// Why it has been ended, in the words of the identity provider; empty while it goes on.
        std::string revocation;
    };

    /// A session as one of its ID tokens finds it.
    struct Bearer {
        std::string uid;
        Time tokenEnd;
        /// Whether the session has been ended together with its ID tokens.
        bool hasEnded = false;
    };

    /// Makes the tables when there are none.
    explicit SessionStore(const std::filesystem::path& file);

    /// Gives the session's id.
    std::int64_t add(const std::string& uid, std::string_view refreshToken);
    [[nodiscard]] std::optional<Session> find(std::string_view refreshToken) const;

    /// ID tokens that have ended by `now` are forgotten.
    void addIDToken(std::int64_t session, std::string_view idToken, Time end, Time now);
    [[nodiscard]] std::optional<Bearer> bearer(std::string_view idToken) const;

    /// Ends the sessions of the account, or all of them when `uid` is empty. Gives their number.
    std::size_t revoke(const std::string& uid, const std::string& reason, bool endsIDTokens);
    /// Gives the number of ID tokens that would have gone on.
    std::size_t endIDTokens(Time now);

private:
    mutable std::mutex mutex_;
    Database database_;
};

} // namespace orvel::service
