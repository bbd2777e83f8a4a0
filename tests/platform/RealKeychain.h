// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Keychain.h"

#include <memory>
#include <string>
#include <vector>

namespace orvel::test {

inline constexpr auto keychainService = "app.test.session";
inline constexpr auto keychainAccount = "session";

/// A keychain, and the stored items that a new process would find.
class KeychainSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual Keychain& keychain() = 0;
    /// The stored values for the service and the account above.
    [[nodiscard]] virtual std::vector<std::string> kept() = 0;
    virtual void destroyKeychain() = 0;
};

/// Initially without an item of that service and account.
[[nodiscard]] std::unique_ptr<KeychainSubject> makeRealKeychain();

} // namespace orvel::test
