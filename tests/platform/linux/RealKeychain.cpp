// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealKeychain.h"

#include "platform/linux/keychain/SecretServiceKeychain.h"
#include "tests/platform/KeychainCalls.h"
#include "tests/platform/linux/keychain/KeyringDesktop.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gtest/gtest.h>

namespace orvel::test {

namespace {

class SecretServiceSubject final : public KeychainSubject {
public:
    SecretServiceSubject() {
        // Remove the item of an earlier test.
        const auto removal = startRemove(*keychain_, keychainService, keychainAccount);
        EXPECT_EQ(failureOf(removal), "");
    }
    Keychain& keychain() override { return *keychain_; }
    std::vector<std::string> kept() override {
        return desktop_.values(keychainService, keychainAccount);
    }
    void destroyKeychain() override { keychain_.reset(); }

private:
    KeyringDesktop desktop_;
    ManualClock clock_;
    RecordingLogStore log_;
    std::unique_ptr<Keychain> keychain_ = std::make_unique<SecretServiceKeychain>(clock_, log_);
};

} // namespace

std::unique_ptr<KeychainSubject> makeRealKeychain() {
    return std::make_unique<SecretServiceSubject>();
}

} // namespace orvel::test
