// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/support/FoundationConversions.h"

#include "core/Text.h"
#include "core/URLErrors.h"

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
    // Not UTF8String, which ends at a character of value zero.
    NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
    if (bytes == nil) {
        // Half of a surrogate pair has no UTF-8.
        bytes = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
    }
    // Either may be nil, which has the length 0.
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
    // Also one that has no name with us: it stays the number that the system gives.
    return {static_cast<tavrin::URLErrorCode>(error.code), utf8(error.localizedDescription)};
}

} // namespace orvel
