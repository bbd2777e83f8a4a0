// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/UserDefaultsValues.h"

#include "platform/macos/support/FoundationConversions.h"

#import <CoreFoundation/CoreFoundation.h>

#include <chrono>

namespace orvel::user_defaults_values {

namespace {

/// Booleans are also numbers. Only their type differs.
bool isBoolean(NSNumber* number) {
    return CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID();
}

NSNumber* numberIn(id object) {
    return [object isKindOfClass:[NSNumber class]] ? object : nil;
}

} // namespace

id object(std::string_view text) {
    return nsString(text);
}

id object(std::int64_t integer) {
    return [NSNumber numberWithLongLong:integer];
}

id object(bool boolean) {
    return [NSNumber numberWithBool:boolean ? YES : NO];
}

id object(tavrin::Date date) {
    return nsDate(std::chrono::round<std::chrono::milliseconds>(date));
}

std::optional<std::string> string(id object) {
    if (![object isKindOfClass:[NSString class]]) {
        return std::nullopt;
    }
    return utf8(object);
}

std::optional<std::int64_t> integer(id object) {
    NSNumber* const number = numberIn(object);
    if (number == nil || isBoolean(number) ||
        CFNumberIsFloatType((__bridge CFNumberRef)number) != 0) {
        return std::nullopt;
    }
    return number.longLongValue;
}

std::optional<bool> boolean(id object) {
    NSNumber* const number = numberIn(object);
    if (number == nil || !isBoolean(number)) {
        return std::nullopt;
    }
    return number.boolValue == YES;
}

std::optional<tavrin::Date> date(id object) {
    NSDate* const stored = [object isKindOfClass:[NSDate class]] ? object : nil;
    if (stored == nil) {
        return std::nullopt;
    }
    // The system uses another reference date, so the conversion loses the last bits of a fraction.
    return std::chrono::round<std::chrono::milliseconds>(dateOf(stored));
}

} // namespace orvel::user_defaults_values
