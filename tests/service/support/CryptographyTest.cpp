// SPDX-License-Identifier: Apache-2.0
#include "service/support/Cryptography.h"

#include <gtest/gtest.h>

#include <set>

namespace orvel::service {
namespace {

TEST(CryptographyTest, MatchesThePublishedHashes) {
    // RFC 7636, appendix B; and FIPS 180-2, appendix B.1.
    EXPECT_EQ(
        "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM",
        sha256("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"));
    EXPECT_EQ("ungWv48Bz-pBQUDeXa4iI7ADYaOWF3qctBD_YfIAFa0", sha256("abc"));
}

TEST(CryptographyTest, TokensAreUnique) {
    std::set<std::string> tokens;
    for (int count = 0; count < 1000; ++count) {
        const auto token = randomToken("word-");
        EXPECT_EQ(48U, token.size());
        EXPECT_TRUE(token.starts_with("word-"));
        tokens.insert(token);
    }
    EXPECT_EQ(1000U, tokens.size());
}

TEST(CryptographyTest, ComparesWholeTexts) {
    EXPECT_TRUE(equalsInConstantTime("", ""));
    EXPECT_TRUE(equalsInConstantTime("same", "same"));
    EXPECT_FALSE(equalsInConstantTime("same", "sama"));
    EXPECT_FALSE(equalsInConstantTime("same", "sam"));
    EXPECT_FALSE(equalsInConstantTime("", "same"));
}

} // namespace
} // namespace orvel::service
