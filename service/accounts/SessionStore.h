// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/support/Database.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// The issued sessions, in tables beside the records.
///
/// Tokens are stored as hashes only. Thread-safe. Every failure is a `ServiceError`.
class SessionStore final {
public:
    using Time = std::chrono::system_clock::time_point;

    /// A session, found by its refresh token.
    struct Session {
        std::int64_t id = 0;
        std::string uid;
        /// The identity provider's error code for a session that was ended. Otherwise empty.
        std::string revocation;
        Time end;
    };

    /// A session, found by one of its ID tokens.
    struct Bearer {
        std::string uid;
        Time tokenEnd;
        Time sessionEnd;
        /// Whether the session was ended together with its ID tokens.
        bool hasEnded = false;
    };

    /// More sessions replace the oldest ones, and more ID tokens of a session its oldest ones.
    static constexpr std::int64_t maxSessions = 200;
    static constexpr std::int64_t maxIDTokens = 50;
    /// An ended session is kept for this long, to tell the client that it has ended.
    static constexpr std::chrono::days memory{30};

    /// Creates the tables if they are missing. Sessions from before they had an end are removed.
    explicit SessionStore(const std::filesystem::path& file);

    /// Returns the session's id.
    std::int64_t add(const std::string& uid, std::string_view refreshToken, Time end, Time now);
    [[nodiscard]] std::optional<Session> find(std::string_view refreshToken) const;

    /// Also deletes the ID tokens that have expired by `now`.
    void addIDToken(std::int64_t session, std::string_view idToken, Time end, Time now);
    [[nodiscard]] std::optional<Bearer> bearer(std::string_view idToken) const;

    /// Ends the sessions of the account, or all of them if `uid` is empty. Returns their number.
    std::size_t revoke(const std::string& uid, const std::string& reason, bool endsIDTokens);
    /// Returns the number of ID tokens that were still valid.
    std::size_t endIDTokens(Time now);

private:
    Database database_;
};

} // namespace orvel::service
