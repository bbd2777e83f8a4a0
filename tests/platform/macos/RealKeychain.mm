// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealKeychain.h"

#include "platform/macos/keychain/SecurityKeychain.h"
#include "platform/macos/log/UnifiedLogStore.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace orvel::test {

namespace {

/// Sets HOME to the user's real home directory during its lifetime. The system looks for the
/// keychain there, and the tests use another one.
class RealHome final {
public:
    RealHome() { setenv("HOME", getpwuid(getuid())->pw_dir, 1); }
    ~RealHome() { setenv("HOME", former_.c_str(), 1); }
    RealHome(const RealHome&) = delete;
    RealHome& operator=(const RealHome&) = delete;

private:
    std::string former_ = getenv("HOME");
};

/// The items are in the user's keychain, under a service used only by the tests.
class SecuritySubject final : public KeychainSubject {
public:
    SecuritySubject() { removeItem(); }
    ~SecuritySubject() override {
        keychain_.reset();
        removeItem();
    }

    Keychain& keychain() override { return *keychain_; }
    std::vector<std::string> kept() override {
        NSDictionary* const query = @{
            (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
            (__bridge id)kSecAttrService : nsString(keychainService),
            (__bridge id)kSecAttrAccount : nsString(keychainAccount),
            (__bridge id)kSecReturnData : @YES,
        };
        CFTypeRef found = nullptr;
        if (SecItemCopyMatching((__bridge CFDictionaryRef)query, &found) != errSecSuccess) {
            return {};
        }
        NSData* const data = (__bridge_transfer NSData*)found;
        return {std::string(static_cast<const char*>(data.bytes), data.length)};
    }
    void destroyKeychain() override { keychain_.reset(); }

private:
    static void removeItem() {
        NSDictionary* const query = @{
            (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
            (__bridge id)kSecAttrService : nsString(keychainService),
        };
        SecItemDelete((__bridge CFDictionaryRef)query);
    }

    RealHome home_;
    UnifiedLogStore log_{UnifiedLogStore::Options{"app.test", std::nullopt}};
    std::unique_ptr<Keychain> keychain_ = std::make_unique<SecurityKeychain>(log_);
};

} // namespace

std::unique_ptr<KeychainSubject> makeRealKeychain() {
    return std::make_unique<SecuritySubject>();
}

} // namespace orvel::test
