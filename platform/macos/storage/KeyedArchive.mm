// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>

#include <new>

namespace tavrin {

namespace {

std::optional<std::string> unarchived(std::span<const std::uint8_t> archive) {
    @autoreleasepool {
        @try {
            // Used only within this function.
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
            // Some malformed archives raise an exception instead of returning an error.
            return std::nullopt;
        }
    }
}

} // namespace

std::optional<std::string> KeyedArchive::attributedString(std::span<const std::uint8_t> archive) {
    try {
        // The unarchiver has no documented limits, so check ours first.
        if (!parsePropertyList(archive, limits)) {
            return std::nullopt;
        }
        return unarchived(archive);
    } catch (const std::bad_alloc&) {
        // Out of memory: the text is too large.
        return std::nullopt;
    }
}

} // namespace tavrin
