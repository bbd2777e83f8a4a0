// SPDX-License-Identifier: Apache-2.0
#include "core/SignInFailure.h"

#include <gtest/gtest.h>

#include <string>

namespace tavrin {

namespace {

const SignInFailure noAccount{SignInFailure::NoAccount()};

SignInFailure other(std::string text) {
    return SignInFailure(SignInFailure::Other{std::move(text)});
}

} // namespace

TEST(SignInFailureTest, TheCodeOfAMissingAccountHasItsOwnSentence) {
    EXPECT_EQ(SignInFailure::noAccountCode, "no_account");
    const SignInFailure failure = SignInFailure::fromCallbackError("no_account");
    EXPECT_EQ(failure, noAccount);
    EXPECT_EQ(failure.message(), "That sign-in has no Orvel Agent account.");
}

TEST(SignInFailureTest, WhiteSpaceAroundTheCodeDoesNotMatter) {
    for (const char* value :
         {" no_account\n", "\tno_account", "no_account\r\n", "\u00A0no_account\u2028"}) {
        EXPECT_EQ(SignInFailure::fromCallbackError(value), noAccount) << value;
    }
}

TEST(SignInFailureTest, OtherErrorsAreTheirOwnMessage) {
    for (const char* value :
         {"access_denied",
          " access denied \n",
          "",
          "No_Account",
          "no_account.",
          "no account",
          "Zugang gesperrt für heute"}) {
        const SignInFailure failure = SignInFailure::fromCallbackError(value);
        EXPECT_EQ(failure, other(value));
        EXPECT_EQ(failure.message(), value);
    }
}

TEST(SignInFailureTest, IllFormedTextIsRepaired) {
    EXPECT_EQ(SignInFailure::fromCallbackError("a\xFF").message(), "a\uFFFD");
    EXPECT_EQ(SignInFailure::fromCallbackError("\xFFno_account"), other("\uFFFDno_account"));
}

TEST(SignInFailureTest, FailuresAreEqualWhenTheirKindAndTextAre) {
    EXPECT_EQ(other("a"), other("a"));
    EXPECT_NE(other("a"), other("b"));
    EXPECT_NE(other("no_account"), noAccount);
}

TEST(SignInFailureTest, OtherErrorsAreCutAndCleaned) {
    EXPECT_EQ(
        SignInFailure::fromCallbackError("\x1B\u202E" + std::string(1'000'000, 'x')),
        other("\uFFFD\uFFFD" + std::string(498, 'x')));
}

} // namespace tavrin
