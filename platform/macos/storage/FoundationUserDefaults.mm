// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/FoundationUserDefaults.h"

#include "core/Errors.h"
#include "core/FileLock.h"
#include "platform/macos/storage/UserDefaultsValues.h"
#include "platform/macos/support/FoundationConversions.h"

#include <cerrno>
#include <filesystem>

namespace orvel {

namespace values = user_defaults_values;

namespace {

NSUserDefaults* defaultsOf(const std::string& identifier) {
    NSString* const name = nsString(identifier);
    if (identifier.empty() || [name isEqual:NSBundle.mainBundle.bundleIdentifier]) {
        // The program's own defaults cannot be opened by name.
        return NSUserDefaults.standardUserDefaults;
    }
    NSUserDefaults* const defaults = [[NSUserDefaults alloc] initWithSuiteName:name];
    if (defaults == nil) {
        throw tavrin::PlatformError::fromErrno(
            EINVAL, "There can be no settings of the name " + identifier);
    }
    return defaults;
}

} // namespace

FoundationUserDefaults::FoundationUserDefaults(const std::string& identifier)
    : defaults_(defaultsOf(identifier)),
      identifier_(identifier.empty() ? utf8(NSBundle.mainBundle.bundleIdentifier) : identifier) {}

std::optional<tavrin::UserDefaults::Value>
FoundationUserDefaults::value(std::string_view key) const {
    @autoreleasepool {
        return values::value([defaults_ objectForKey:nsString(key)]);
    }
}

void FoundationUserDefaults::set(std::string_view key, Value value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void FoundationUserDefaults::remove(std::string_view key) {
    @autoreleasepool {
        write(key, nil);
    }
}

std::unique_ptr<tavrin::Interface> FoundationUserDefaults::tryLock() {
    @autoreleasepool {
        const std::filesystem::path home(utf8(NSHomeDirectory()));
        auto lock =
            tavrin::tryLockFile(home / "Library" / "Caches" / identifier_ / "collection.inuse");
        if (lock) {
            [defaults_ synchronize];
        }
        return lock;
    }
}

void FoundationUserDefaults::write(std::string_view key, id object) {
    const std::lock_guard lock(writeMutex_);
    NSString* const name = nsString(key);
    const id before = [defaults_ objectForKey:name];
    [defaults_ setObject:object forKey:name];
    if ([defaults_ synchronize] == NO) {
        [defaults_ setObject:before forKey:name];
        throw tavrin::PlatformError::fromErrno(EIO, "Could not save the agent's settings");
    }
}

} // namespace orvel
