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

TEST(InQuotesTest, EscapesC1AndBidirectionalControls) {
    EXPECT_EQ(inQuotes("a\u0085\u009Bb"), R"("a\u{85}\u{9B}b")");
    EXPECT_EQ(
        inQuotes("\u061C\u200E\u202E\u2066\u2028\u2029"),
        R"("\u{61C}\u{200E}\u{202E}\u{2066}\u{2028}\u{2029}")");
    EXPECT_EQ(inQuotes("\u00A0\u00E9\u200D\u2065\u206A"), "\"\u00A0\u00E9\u200D\u2065\u206A\"");
}

TEST(IdentityErrorTest, ItsMessageIsCutAndCleaned) {
    const IdentityError error("\x1B\u202E" + std::string(1'000'000, 'x'), 400);
    EXPECT_EQ(error.message(), "\uFFFD\uFFFD" + std::string(498, 'x'));
}

TEST(AuthErrorTest, ItsMessageIsCutAndCleaned) {
    const AuthError error("\x1B\u202E" + std::string(1'000'000, 'x'));
    EXPECT_EQ(error.message(), "\uFFFD\uFFFD" + std::string(498, 'x'));
}

} // namespace orvel
