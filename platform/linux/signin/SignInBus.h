// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The D-Bus method that receives the browser's callback: takes the URL and returns whether a
/// sign-in was waiting for it.
namespace orvel::sign_in_bus {

inline constexpr auto service = "app.orvel.OrvelAgent.SignIn";
inline constexpr auto path = "/app/orvel/OrvelAgent/SignIn";
inline constexpr auto interface = "app.orvel.OrvelAgent.SignIn1";
inline constexpr auto method = "Callback";

} // namespace orvel::sign_in_bus
