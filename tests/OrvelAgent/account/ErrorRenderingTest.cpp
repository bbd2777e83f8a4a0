// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/base/InQuotes.h"

#include <gtest/gtest.h>

#include <string>

namespace orvel {

TEST(InQuotesTest, EscapesQuotesAndControlCharacters) {
    EXPECT_EQ(inQuotes(""), R"("")");
    EXPECT_EQ(inQuotes("it's für 😀"), R"("it's für 😀")");
    EXPECT_EQ(inQuotes(R"(say "a\b")"), R"("say \"a\\b\"")");
    EXPECT_EQ(inQuotes("a\nb\rc\td"), R"("a\nb\rc\td")");
    EXPECT_EQ(inQuotes(std::string("\0\x1B\x7F", 3)), R"("\0\u{1B}\u{7F}")");
}

TEST(IdentityErrorTest, ShowsItsMessageAndStatus) {
    const IdentityError error("INVALID_REFRESH_TOKEN", 400);
    EXPECT_EQ(error.message(), "INVALID_REFRESH_TOKEN");
    EXPECT_EQ(error.status(), 400);
    EXPECT_STREQ(
        error.what(), R"(IdentityError(message: "INVALID_REFRESH_TOKEN", status: Optional(400)))");
}

TEST(IdentityErrorTest, WithoutAStatusItIsNil) {
    const IdentityError error("say \"no\"\n");
    EXPECT_EQ(error.status(), std::nullopt);
    EXPECT_STREQ(error.what(), R"(IdentityError(message: "say \"no\"\n", status: nil))");
}

TEST(AuthErrorTest, WithoutAFailureOfTheSiteItIsNil) {
    const AuthError error("Sign-in was cancelled.");
    EXPECT_EQ(error.message(), "Sign-in was cancelled.");
    EXPECT_EQ(error.failure(), std::nullopt);
    EXPECT_STREQ(error.what(), R"(AuthError(message: "Sign-in was cancelled.", failure: nil))");
}

TEST(AuthErrorTest, ShowsTheSitesTextTwice) {
    const auto failure = tavrin::SignInFailure::fromCallbackError("access\"denied");
    const AuthError error(failure);
    EXPECT_EQ(error.message(), "access\"denied");
    EXPECT_EQ(error.failure(), failure);
    EXPECT_STREQ(
        error.what(),
        R"(AuthError(message: "access\"denied", )"
        R"(failure: Optional(TavrinCore.SignInFailure.other("access\"denied"))))");
}

TEST(AuthErrorTest, AMissingAccountHasItsOwnCase) {
    const AuthError error(tavrin::SignInFailure::fromCallbackError("no_account"));
    EXPECT_EQ(error.message(), "That sign-in has no Orvel Agent account.");
    EXPECT_STREQ(
        error.what(),
        R"(AuthError(message: "That sign-in has no Orvel Agent account.", )"
        R"(failure: Optional(TavrinCore.SignInFailure.noAccount)))");
}

} // namespace orvel
