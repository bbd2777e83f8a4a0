// SPDX-License-Identifier: Apache-2.0
#include "core/messages/Handle.h"

#include <gtest/gtest.h>

#include <string>

namespace tavrin {

namespace {

using namespace std::string_literals;

Handle phone(std::string raw) {
    return {Handle::Kind::Phone, std::move(raw)};
}

Handle email(std::string raw) {
    return {Handle::Kind::Email, std::move(raw)};
}

} // namespace

TEST(HandleTest, APhoneNumberIsTrimmedAndOtherwiseKept) {
    EXPECT_EQ(Handle::classify(" +1 (415) 555-0134\r\n"), phone("+1 (415) 555-0134"));
    EXPECT_EQ(Handle::classify("\u00A0\u2028VM-BANK\u3000"), phone("VM-BANK"));
}

TEST(HandleTest, AnAddressIsTrimmedAndLowerCased) {
    EXPECT_EQ(Handle::classify("\t A.Person@Example.COM \n"), email("a.person@example.com"));
    EXPECT_EQ(Handle::classify("\u00C9milie@Example.com"), email("\u00E9milie@example.com"));
}

TEST(HandleTest, AnAtSignAnywhereMakesAnAddress) {
    EXPECT_EQ(Handle::classify("@"), email("@"));
    EXPECT_EQ(Handle::classify("+1@415"), email("+1@415"));
    EXPECT_EQ(Handle::classify("415 555 0134@"), email("415 555 0134@"));
}

TEST(HandleTest, AnEmptyTextIsAnEmptyPhoneNumber) {
    EXPECT_EQ(Handle::classify(""), phone(""));
    EXPECT_EQ(Handle::classify(" \n\u2029"), phone(""));
}

TEST(HandleTest, IllFormedTextIsRepaired) {
    EXPECT_EQ(Handle::classify(" 415\xFF"), phone("415\uFFFD"));
    EXPECT_EQ(Handle::classify("A\xC3@B "), email("a\uFFFD@b"));
}

TEST(HandleTest, KeepsAnEmbeddedNul) {
    EXPECT_EQ(Handle::classify("415\0X@Y"s), email("415\0x@y"s));
}

} // namespace tavrin
