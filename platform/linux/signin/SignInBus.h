// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Where on the session bus a callback from the browser is handed over: the method takes the URL
/// and gives whether a sign-in was waiting for it.
namespace orvel::sign_in_bus {

inline constexpr auto service = "app.orvel.OrvelAgent.SignIn";
inline constexpr auto path = "/app/orvel/OrvelAgent/SignIn";
inline constexpr auto interface = "app.orvel.OrvelAgent.SignIn1";
inline constexpr auto method = "Callback";

} // namespace orvel::sign_in_bus
