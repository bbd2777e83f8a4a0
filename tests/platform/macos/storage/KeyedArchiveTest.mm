// SPDX-License-Identifier: Apache-2.0
#include "core/messages/KeyedArchive.h"

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tavrin {

namespace {

std::optional<std::string> textIn(NSData* archive) {
    return KeyedArchive::attributedString(
        {static_cast<const std::uint8_t*>(archive.bytes), archive.length});
}

NSData* archiveOf(id<NSSecureCoding> object) {
    return [NSKeyedArchiver archivedDataWithRootObject:object requiringSecureCoding:YES error:nil];
}

} // namespace

TEST(KeyedArchiveTest, GivesTheTextOfAnArchivedString) {
    for (NSString* const text in
         @[ @"Hello", @" trailing spaces  ", @"caf\u00e9 \U0001F600", @"" ]) {
        NSAttributedString* const string = [[NSAttributedString alloc] initWithString:text];
        EXPECT_EQ(textIn(archiveOf(string)), std::string(text.UTF8String));
        EXPECT_EQ(textIn(archiveOf([string mutableCopy])), std::string(text.UTF8String));
    }
}

TEST(KeyedArchiveTest, AnotherRootClassGivesNothing) {
    EXPECT_EQ(textIn(archiveOf(@"Hello")), std::nullopt);
    EXPECT_EQ(textIn(archiveOf(@[ @"Hello" ])), std::nullopt);
}

TEST(KeyedArchiveTest, WhatIsNoArchiveGivesNothing) {
    for (const std::string_view bytes : {"", "bplist00", "garbage", "<plist/>"}) {
        EXPECT_EQ(textIn([NSData dataWithBytes:bytes.data() length:bytes.size()]), std::nullopt);
    }
}

TEST(KeyedArchiveTest, AnArchiveCutAnywhereGivesNothing) {
    NSData* const whole = archiveOf([[NSAttributedString alloc] initWithString:@"Hello"]);
    for (NSUInteger size = 0; size < whole.length; ++size) {
        EXPECT_EQ(textIn([NSData dataWithBytes:whole.bytes length:size]), std::nullopt) << size;
    }
}

TEST(KeyedArchiveTest, AnArchiveBeyondTheLimitsGivesNothing) {
    const auto textOfLength = [](std::size_t length) {
        const std::string text(length, 'x');
        NSString* const string = [[NSString alloc] initWithBytes:text.data()
                                                          length:text.size()
                                                        encoding:NSASCIIStringEncoding];
        return textIn(archiveOf([[NSAttributedString alloc] initWithString:string]));
    };
    constexpr std::size_t half = KeyedArchive::limits.size / 2;
    EXPECT_EQ(textOfLength(half), std::string(half, 'x'));
    EXPECT_EQ(textOfLength(2 * half), std::nullopt);
}

} // namespace tavrin
