// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/keychain/SecurityKeychain.h"

#include "core/Text.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <utility>

namespace orvel {

namespace {

using Value = std::shared_ptr<const tavrin::Secret>;

NSMutableDictionary* baseQuery(const std::string& service, const std::string& account) {
    return [@{
        (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
        (__bridge id)kSecAttrService : nsString(service),
        (__bridge id)kSecAttrAccount : nsString(account),
    } mutableCopy];
}

tavrin::PlatformError errorOf(OSStatus status, const std::string& what) {
    NSString* const reason =
        (__bridge_transfer NSString*)SecCopyErrorMessageString(status, nullptr);
    return {
        utf8(NSOSStatusErrorDomain),
        static_cast<int>(status),
        what + ": " + (reason == nil ? "status " + std::to_string(status) : utf8(reason))};
}

tavrin::PlatformError changeError(OSStatus status) {
    return errorOf(status, "Could not change the keychain");
}

Keychain::Reading readItem(const std::string& service, const std::string& account) {
    NSMutableDictionary* const query = baseQuery(service, account);
    query[(__bridge id)kSecReturnData] = @YES;
    query[(__bridge id)kSecMatchLimit] = (__bridge id)kSecMatchLimitOne;
    CFTypeRef found = nullptr;
    const OSStatus status = SecItemCopyMatching((__bridge CFDictionaryRef)query, &found);
    if (status == errSecItemNotFound) {
        return {};
    }
    if (status != errSecSuccess) {
        return {std::nullopt, errorOf(status, "Could not read the keychain")};
    }
    NSData* const data = (__bridge_transfer NSData*)found;
    if (data.length == 0) {
        return {tavrin::Secret(), std::nullopt};
    }
    std::string text(static_cast<const char*>(data.bytes), data.length);
    if (!tavrin::isValidUTF8(text)) {
        tavrin::wipe(text);
        return {
            std::nullopt,
            tavrin::PlatformError(utf8(NSOSStatusErrorDomain), 0, "The item is not UTF-8.")};
    }
    return {tavrin::Secret(std::move(text)), std::nullopt};
}

std::optional<tavrin::PlatformError>
writeItem(const std::string& service, const std::string& account, const tavrin::Secret& value) {
    // Ignore the result: adding fails if the old item still exists.
    SecItemDelete((__bridge CFDictionaryRef)baseQuery(service, account));
    NSMutableDictionary* const attributes = baseQuery(service, account);
    attributes[(__bridge id)kSecValueData] = [NSData dataWithBytes:value.text().data()
                                                            length:value.text().size()];
    attributes[(__bridge id)kSecAttrAccessible] = (__bridge id)kSecAttrAccessibleAfterFirstUnlock;
    const OSStatus status = SecItemAdd((__bridge CFDictionaryRef)attributes, nullptr);
    return status == errSecSuccess ? std::nullopt : std::optional(changeError(status));
}

std::optional<tavrin::PlatformError>
removeItem(const std::string& service, const std::string& account) {
    const OSStatus status = SecItemDelete((__bridge CFDictionaryRef)baseQuery(service, account));
    return status == errSecSuccess || status == errSecItemNotFound
               ? std::nullopt
               : std::optional(changeError(status));
}

} // namespace

SecurityKeychain::SecurityKeychain(LogStore& logStore)
    : logStore_(logStore), queue_(dispatch_queue_create("orvel.keychain", DISPATCH_QUEUE_SERIAL)) {}

void SecurityKeychain::read(std::string service, std::string account, ReadCompletion completion) {
    const auto call = reads_.add(std::move(completion));
    if (const auto change = changes_.find({service, account}); change != changes_.end()) {
        // The value in the keychain is older, and the queue may be waiting for the user.
        const Value& value = change->second.value;
        call.finish({value ? std::optional(*value) : std::nullopt, std::nullopt});
        return;
    }
    dispatch_async(queue_, ^{
      @autoreleasepool {
          call.finish(readItem(service, account));
      }
    });
}

void SecurityKeychain::write(
    std::string service, std::string account, tavrin::Secret value, ChangeCompletion completion) {
    const auto shared = std::make_shared<const tavrin::Secret>(std::move(value));
    change(
        {service, account},
        shared,
        "the session is kept in memory only",
        [service, account, shared] { return writeItem(service, account, *shared); },
        std::move(completion));
}

void SecurityKeychain::remove(
    std::string service, std::string account, ChangeCompletion completion) {
    change(
        {service, account},
        nullptr,
        "an item could not be removed from the keychain",
        [service, account] { return removeItem(service, account); },
        std::move(completion));
}

void SecurityKeychain::change(
    Name name,
    Value value,
    std::string_view whatFailed,
    std::function<Failure()> work,
    ChangeCompletion completion) {
    const std::uint64_t number = ++lastChange_;
    changes_[name] = Change{number, std::move(value)};
    // This runs only while the object exists.
    const auto call = writes_.add([this,
                                   name,
                                   number,
                                   whatFailed = std::string(whatFailed),
                                   completion = std::move(completion)](const Failure& failure) {
        if (failure) {
            logStore_.write(LogLevel::Error, "keychain", whatFailed + ": " + failure->what());
        } else if (const auto change = changes_.find(name);
                   change != changes_.end() && change->second.number == number) {
            changes_.erase(change);
        }
        completion(failure);
    });
    dispatch_async(queue_, ^{
      @autoreleasepool {
          call.finish(work());
      }
    });
}

} // namespace orvel
