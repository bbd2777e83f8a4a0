// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

/// The contract between agent and service about the length of a session.
namespace tavrin::SessionPolicy {

/// The request header that asks for a session of seven days. Sent with every request.
inline constexpr std::string_view headerName = "x-session-policy";
inline constexpr std::string_view headerValue = "7d";

/// The code of a 401 reply that ends the session.
inline constexpr std::string_view expiredCode = "session_expired";

[[nodiscard]] inline bool isSessionExpired(int status, std::optional<std::string_view> code) {
    return status == 401 && code == expiredCode;
}

} // namespace tavrin::SessionPolicy
