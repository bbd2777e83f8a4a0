// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/SignInCallback.h"

#include "OrvelAgent/account/AuthError.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <variant>

namespace orvel {

namespace {

using Outcome = WebAuthenticationSession::Outcome;

std::optional<Outcome> screened(const std::string& items) {
    return SignInCallback::screened("orvelagent://callback" + items);
}

} // namespace

TEST(SignInCallbackTest, ACallbackWithACodePassesUnchanged) {
    for (const char* items :
         {"?code=abc",
          "?code=a%20b+%C3%A9&state='$!#fragment",
          "?x=1&code=abc",
          "?error&code=abc"}) {
        const std::optional<Outcome> outcome = screened(items);
        ASSERT_TRUE(outcome) << items;
        EXPECT_EQ(std::get<std::string>(*outcome), std::string("orvelagent://callback") + items);
    }
}

TEST(SignInCallbackTest, ACallbackWithNeitherCodeNorErrorIsIgnored) {
    for (const char* items :
         {"",
          "?",
          "?code",
          "?code=",
          "?code=&code=abc",
          "?error",
          "?error=",
          "?error=&code=abc",
          "?state=abc",
          "?CODE=abc",
          "#code=abc",
          "?code=%zz",
          "?code=a b"}) {
        EXPECT_EQ(screened(items), std::nullopt) << items;
    }
    for (const char* callback : {"", "not a url?code=abc", "orvelagent://[::1?code=abc"}) {
        EXPECT_EQ(SignInCallback::screened(callback), std::nullopt) << callback;
    }
}

TEST(SignInCallbackTest, AKnownErrorPassesUnchanged) {
    for (const char* error :
         {"no_account",
          "%20no_account%0A",
          "access_denied",
          "invalid_request",
          "invalid_scope",
          "server_error",
          "temporarily_unavailable",
          "unauthorized_client",
          "unsupported_response_type"}) {
        const std::string items = std::string("?error=") + error + "&code=abc";
        const std::optional<Outcome> outcome = screened(items);
        ASSERT_TRUE(outcome) << error;
        EXPECT_EQ(std::get<std::string>(*outcome), "orvelagent://callback" + items);
    }
}

TEST(SignInCallbackTest, NoOtherTextOfAnErrorIsKept) {
    for (const char* error :
         {"Your%20account%20is%20locked.%20Call%20555%200100.",
          "call_555_0100",
          "Access_Denied",
          "access_denied.",
          "access_denied%0ACall%20555%200100",
          "no_account%00",
          "%FF"}) {
        for (const char* rest : {"", "&code=abc", "&error=access_denied"}) {
            const std::optional<Outcome> outcome = screened(std::string("?error=") + error + rest);
            ASSERT_TRUE(outcome) << error;
            EXPECT_EQ(
                std::get<WebAuthenticationSession::Failed>(*outcome).description,
                "The sign-in page reported an error.");
        }
    }
}

} // namespace orvel
