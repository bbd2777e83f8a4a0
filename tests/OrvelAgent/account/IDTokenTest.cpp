// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/IDToken.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <string>

namespace orvel::test {

namespace {

std::string tokenWith(const QByteArray& claims) {
    const auto options = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;
    return (QByteArray(R"({"alg":"RS256"})").toBase64(options) + '.' + claims.toBase64(options) +
            ".c2lnbmF0dXJl")
        .toStdString();
}

} // namespace

TEST(IDTokenTest, NamesTheUserInTheClaims) {
    EXPECT_EQ(userIDOf(tokenWith(R"({"iss":"issuer","sub":"uid-1","exp":1})")), "uid-1");
}

TEST(IDTokenTest, ReadsTheAlphabetForAddresses) {
    // Its encoding contains both characters that the ordinary alphabet lacks.
    EXPECT_EQ(
        userIDOf(tokenWith("{\"sub\":\"\u00ff\u00fe?>\u00ff~~\"}")), "\u00ff\u00fe?>\u00ff~~");
}

TEST(IDTokenTest, AnOpaqueTokenNamesNoUser) {
    for (const char* token : {"", "orvel-test", "one.two", "one.two.three", ".", ".."}) {
        EXPECT_EQ(userIDOf(token), "") << token;
    }
}

TEST(IDTokenTest, ClaimsWithoutAUserNameNone) {
    EXPECT_EQ(userIDOf(tokenWith(R"({"iss":"issuer"})")), "");
    EXPECT_EQ(userIDOf(tokenWith(R"({"sub":1})")), "");
    EXPECT_EQ(userIDOf(tokenWith("[]")), "");
}

} // namespace orvel::test
