// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

/// Where the keychain keeps the session.
namespace orvel::SessionKeychainItem {

/// The service is the bundle identifier followed by this.
inline constexpr const char* serviceSuffix = ".session";

inline constexpr const char* account = "session";

/// The accounts of earlier versions, which kept an item for each field.
inline constexpr std::array<const char*, 4> earlierAccounts{
    "refreshToken", "uid", "accountEmail", "accountHandle"};

} // namespace orvel::SessionKeychainItem
