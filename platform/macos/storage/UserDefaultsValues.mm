// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/UserDefaultsValues.h"

#include "platform/macos/support/FoundationConversions.h"

#import <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>

namespace orvel::user_defaults_values {

id object(const tavrin::UserDefaults::Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return nsString(*text);
    }
    if (const auto* integer = std::get_if<std::int64_t>(&value)) {
        return [NSNumber numberWithLongLong:*integer];
    }
    if (const auto* boolean = std::get_if<bool>(&value)) {
        return [NSNumber numberWithBool:*boolean ? YES : NO];
    }
    return nsDate(std::chrono::round<std::chrono::milliseconds>(std::get<tavrin::Date>(value)));
}

std::optional<tavrin::UserDefaults::Value> value(id object) {
    NSString* const text = [object isKindOfClass:[NSString class]] ? object : nil;
    if (text != nil) {
        return utf8(text);
    }
    NSDate* const date = [object isKindOfClass:[NSDate class]] ? object : nil;
    if (date != nil) {
        // The system uses another reference date, so the conversion loses the last bits of a
        // fraction.
        return std::chrono::round<std::chrono::milliseconds>(dateOf(date));
    }
    NSNumber* const number = [object isKindOfClass:[NSNumber class]] ? object : nil;
    // Booleans are also numbers. Only their type differs.
    if (number != nil && CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) {
        return number.boolValue == YES;
    }
    if (number == nil || CFNumberIsFloatType((__bridge CFNumberRef)number) != 0) {
        return std::nullopt;
    }
    return std::int64_t{number.longLongValue};
}

} // namespace orvel::user_defaults_values
