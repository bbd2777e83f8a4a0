// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/FoundationUserDefaults.h"

#include "core/Errors.h"
#include "platform/macos/storage/UserDefaultsValues.h"
#include "platform/macos/support/FoundationConversions.h"

#include <cerrno>

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
    : defaults_(defaultsOf(identifier)) {}

std::optional<std::string> FoundationUserDefaults::string(std::string_view key) const {
    @autoreleasepool {
        return values::string([defaults_ objectForKey:nsString(key)]);
    }
}

std::optional<std::int64_t> FoundationUserDefaults::integer(std::string_view key) const {
    @autoreleasepool {
        return values::integer([defaults_ objectForKey:nsString(key)]);
    }
}

std::optional<bool> FoundationUserDefaults::boolean(std::string_view key) const {
    @autoreleasepool {
        return values::boolean([defaults_ objectForKey:nsString(key)]);
    }
}

std::optional<tavrin::Date> FoundationUserDefaults::date(std::string_view key) const {
    @autoreleasepool {
        return values::date([defaults_ objectForKey:nsString(key)]);
    }
}

void FoundationUserDefaults::setString(std::string_view key, std::string_view value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void FoundationUserDefaults::setInteger(std::string_view key, std::int64_t value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void FoundationUserDefaults::setBoolean(std::string_view key, bool value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void FoundationUserDefaults::setDate(std::string_view key, tavrin::Date value) {
    @autoreleasepool {
        write(key, values::object(value));
    }
}

void FoundationUserDefaults::remove(std::string_view key) {
    @autoreleasepool {
        write(key, nil);
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
