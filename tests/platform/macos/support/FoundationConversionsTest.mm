// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

namespace orvel::test {

namespace {

tavrin::URLError converted(NSErrorDomain domain, NSInteger code) {
    return urlError([NSError errorWithDomain:domain code:code userInfo:nil]);
}

} // namespace

TEST(FoundationConversionsTest, AnErrorOfURLLoadingKeepsItsCode) {
    // `URLErrorCode` has no names for the last two.
    for (const int code : {-1001, -1200, -1201, -1204, -1206}) {
        const tavrin::URLError error = converted(NSURLErrorDomain, code);
        EXPECT_EQ(static_cast<int>(error.code()), code);
        EXPECT_STRNE(error.what(), "");
    }
}

TEST(FoundationConversionsTest, AnErrorOfAnotherDomainIsUnknown) {
    EXPECT_EQ(converted(NSPOSIXErrorDomain, -1001).code(), tavrin::URLErrorCode::Unknown);
}

} // namespace orvel::test
