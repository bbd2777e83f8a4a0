// SPDX-License-Identifier: Apache-2.0
#include "core/KeyedArchive.h"

#include "platform/macos/FoundationConversions.h"

#import <Foundation/Foundation.h>

namespace tavrin {

std::optional<std::string> KeyedArchive::attributedString(std::span<const std::uint8_t> archive) {
    if (archive.empty()) {
        return std::nullopt;
    }
    @autoreleasepool {
        @try {
            // Only looked at within this function.
            NSData* const data =
                [NSData dataWithBytesNoCopy:const_cast<std::uint8_t*>(archive.data())
                                     length:archive.size()
                               freeWhenDone:NO];
            NSAttributedString* const text =
                [NSKeyedUnarchiver unarchivedObjectOfClass:[NSAttributedString class]
                                                  fromData:data
                                                     error:nil];
            if (text == nil) {
                return std::nullopt;
            }
            return orvel::utf8(text.string);
        } @catch (NSException*) {
            // Some malformed archives raise in place of giving an error.
            return std::nullopt;
        }
    }
}

} // namespace tavrin
