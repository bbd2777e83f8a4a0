// SPDX-License-Identifier: Apache-2.0
#include "tests/service/SignInTest.h"

#include <gmock/gmock.h>

namespace orvel::test {
namespace {

class AccountEndpointsTest : public SignInTest {
protected:
    void SetUp() override { start(); }
};

TEST_F(AccountEndpointsTest, ExchangesACodeForACustomToken) {
    const auto reply = exchange(service_->mintCode(challenge, firstUid));

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(2U, reply.data().size());
    EXPECT_EQ(firstUid, reply.data().at("uid"));
    EXPECT_EQ(200, signInWith(textAt(reply.data(), "customToken")).status);
}

TEST_F(AccountEndpointsTest, TakesACodeOnce) {
    const auto code = service_->mintCode(challenge, firstUid);
    EXPECT_EQ(200, exchange(code).status);

    const auto reply = exchange(code);

    EXPECT_EQ(400, reply.status);
    EXPECT_EQ("invalid_code", reply.code());
}

TEST_F(AccountEndpointsTest, AWrongVerifierInvalidatesTheCode) {
    const std::string right = verifier;
    for (const auto& wrong :
         {std::string(), right.substr(1), right + "a", std::string(challenge)}) {
        SCOPED_TRACE(wrong);
        const auto code = service_->mintCode(challenge, firstUid);

        EXPECT_EQ("invalid_code", exchange(code, wrong).code());
        EXPECT_EQ("invalid_code", exchange(code).code());
    }
}

TEST_F(AccountEndpointsTest, ACodeIsValidForOneMinute) {
    const auto first = service_->mintCode(challenge, firstUid);
    advance(std::chrono::seconds(59));
    EXPECT_EQ(200, exchange(first).status);

    const auto second = service_->mintCode(challenge, firstUid);
    advance(std::chrono::seconds(60));
    EXPECT_EQ("invalid_code", exchange(second).code());
}

TEST_F(AccountEndpointsTest, RefusesUnknownCodes) {
    const auto code = service_->mintCode(challenge, firstUid);
    for (const auto& other : {std::string(), std::string("orvel-code-"), code + "a", "x" + code}) {
        EXPECT_EQ("invalid_code", exchange(other).code()) << other;
    }
    EXPECT_EQ(200, exchange(code).status);
}

TEST_F(AccountEndpointsTest, RefusesInvalidExchanges) {
    const std::vector<std::string> bodies{
        "",
        "[]",
        "{}",
        R"({"code":"a"})",
        R"({"codeVerifier":"a"})",
        R"({"code":1,"codeVerifier":"a"})",
        R"({"code":"a","codeVerifier":null})",
    };
    for (const auto& body : bodies) {
        SCOPED_TRACE(body);
        const auto reply = clientWithoutToken().post(deviceTokenPath, body);
        EXPECT_EQ(400, reply.status);
        EXPECT_EQ("invalid_request", reply.code());
    }
}

TEST_F(AccountEndpointsTest, ReturnsTheProfileOfTheTokensAccount) {
    const boost::json::object first{
        {"uid", firstUid}, {"email", "sample-1@orvel.example"}, {"handle", "sample-1"}};
    EXPECT_EQ(first, bearer(service_->signIn(firstUid).idToken).get(profilePath).data());

    const boost::json::object withoutHandle{
        {"uid", secondUid}, {"email", "sample-2@orvel.example"}};
    EXPECT_EQ(withoutHandle, bearer(service_->signIn(secondUid).idToken).get(profilePath).data());
}

TEST_F(AccountEndpointsTest, HasNoProfileForOtherTokens) {
    const auto reply = bearer("token").get(profilePath);
    EXPECT_EQ(404, reply.status);
    EXPECT_EQ("no_account", reply.code());
    EXPECT_EQ("The bearer token belongs to no account.", textAt(reply.json(), "error"));

    EXPECT_EQ("unauthorized", clientWithoutToken().get(profilePath).code());
}

} // namespace
} // namespace orvel::test
