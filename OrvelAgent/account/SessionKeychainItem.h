// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

/// The keychain item of the session.
namespace orvel::SessionKeychainItem {

/// Appended to the bundle identifier to form the service.
inline constexpr const char* serviceSuffix = ".session";

inline constexpr const char* account = "session";

/// Earlier versions had one item for each field.
inline constexpr std::array<const char*, 4> earlierAccounts{
    "refreshToken", "uid", "accountEmail", "accountHandle"};

} // namespace orvel::SessionKeychainItem
