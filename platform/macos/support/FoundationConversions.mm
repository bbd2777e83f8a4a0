// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/support/FoundationConversions.h"

#include "core/Errors.h"
#include "core/Text.h"

#include <cerrno>
#include <chrono>

namespace orvel {

NSString* nsString(std::string_view text) {
    NSString* const exact = [[NSString alloc] initWithBytes:text.data()
                                                     length:text.size()
                                                   encoding:NSUTF8StringEncoding];
    if (exact != nil) {
        return exact;
    }
    const std::string repaired = tavrin::repairedUTF8(text);
    NSString* const result = [[NSString alloc] initWithBytes:repaired.data()
                                                      length:repaired.size()
                                                    encoding:NSUTF8StringEncoding];
    return result != nil ? result : @"";
}

std::string utf8(NSString* text) {
    // `UTF8String` would end at a NUL character.
    NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
    if (bytes == nil) {
        // An unpaired surrogate has no UTF-8.
        bytes = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    }
    // `bytes` may still be nil, which has length 0.
    return bytes.length == 0 ? std::string()
                             : std::string(static_cast<const char*>(bytes.bytes), bytes.length);
}

NSDate* nsDate(tavrin::Date date) {
    return [NSDate dateWithTimeIntervalSince1970:date.time_since_epoch().count()];
}

tavrin::Date dateOf(NSDate* date) {
    return tavrin::Date(tavrin::Seconds(date.timeIntervalSince1970));
}

NSURL* fileURL(const std::filesystem::path& path) {
    return [NSURL fileURLWithPath:nsString(path.native())];
}

std::filesystem::path pathOf(NSURL* file) {
    return utf8(file.path);
}

tavrin::PlatformError platformError(NSError* error) {
    if (error == nil) {
        return tavrin::PlatformError::fromErrno(EIO, "The system gave no reason");
    }
    return {utf8(error.domain), static_cast<int>(error.code), utf8(error.localizedDescription)};
}

tavrin::URLError urlError(NSError* error) {
    if (![error.domain isEqualToString:NSURLErrorDomain]) {
        return tavrin::urlError(tavrin::URLErrorCode::Unknown);
    }
    // Keep the system's number even if `URLErrorCode` has no name for it.
    return {static_cast<tavrin::URLErrorCode>(error.code), utf8(error.localizedDescription)};
}

} // namespace orvel
