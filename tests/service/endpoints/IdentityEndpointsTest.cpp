// SPDX-License-Identifier: Apache-2.0
#include "tests/service/SignInTest.h"

#include <gmock/gmock.h>

namespace orvel::test {
namespace {

class IdentityEndpointsTest : public SignInTest {
protected:
    void SetUp() override { start(); }
};

TEST_F(IdentityEndpointsTest, ExchangesACustomTokenForASession) {
    const auto reply = signInWith(customToken());

    EXPECT_EQ(200, reply.status);
    const auto json = reply.json();
    EXPECT_EQ(3U, json.size());
    EXPECT_EQ("3600", json.at("expiresIn"));
    EXPECT_EQ("200", answerTo(textAt(json, "idToken")));
    EXPECT_EQ(200, refreshWith(textAt(json, "refreshToken")).status);
}

TEST_F(IdentityEndpointsTest, ReturnsARefreshTokenOnlyOnRequest) {
    const auto token = customToken();

    const auto reply = clientWithoutToken().post(signInPath, R"({"token":")" + token + "\"}");

    EXPECT_EQ(200, reply.status);
    EXPECT_EQ(1U, reply.json().size());
    EXPECT_EQ("200", answerTo(textAt(reply.json(), "idToken")));
}

TEST_F(IdentityEndpointsTest, AcceptsACustomTokenOnce) {
    const auto token = customToken();
    EXPECT_EQ(200, signInWith(token).status);

    const auto reply = signInWith(token);

    EXPECT_EQ(400, reply.status);
    EXPECT_EQ("INVALID_CUSTOM_TOKEN", identityMessage(reply));
}

TEST_F(IdentityEndpointsTest, ACustomTokenIsValidForOneHour) {
    const auto first = customToken();
    advance(std::chrono::seconds(3599));
    EXPECT_EQ(200, signInWith(first).status);

    const auto second = customToken();
    advance(std::chrono::seconds(3600));
    EXPECT_EQ("INVALID_CUSTOM_TOKEN", identityMessage(signInWith(second)));
}

TEST_F(IdentityEndpointsTest, RefreshesASession) {
    const auto session = service_->signIn(firstUid);

    const auto reply = refreshWith(session.refreshToken);

    EXPECT_EQ(200, reply.status);
    auto json = reply.json();
    const auto idToken = textAt(json, "id_token");
    EXPECT_NE(session.idToken, idToken);
    EXPECT_EQ("200", answerTo(idToken));
    EXPECT_EQ("200", answerTo(session.idToken));
    json.erase("id_token");
    const boost::json::object expected{
        {"refresh_token", session.refreshToken},
        {"expires_in", "3600"},
        {"token_type", "Bearer"},
        {"user_id", firstUid},
        {"project_id", "orvel-local-service"},
    };
    EXPECT_EQ(expected, json);
}

TEST_F(IdentityEndpointsTest, DecodesTheForm) {
    auto token = service_->signIn(firstUid).refreshToken;
    token.replace(token.find('-'), 1, "%2D");

    EXPECT_EQ(200, refreshWith(token).status);
    EXPECT_EQ("INVALID_REFRESH_TOKEN", identityMessage(refreshWith(token + "+")));
}

TEST_F(IdentityEndpointsTest, RefusesInTheProvidersFormat) {
    const auto reply = refreshWith("unknown");

    EXPECT_EQ(400, reply.status);
    EXPECT_EQ(
        boost::json::parse(R"({"error":{"code":400,"message":"INVALID_REFRESH_TOKEN","errors":[
            {"message":"INVALID_REFRESH_TOKEN","reason":"invalid","domain":"global"}]}})"),
        boost::json::value(reply.json()));
}

TEST_F(IdentityEndpointsTest, ReportsWhyASignInIsRefused) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"{}", "MISSING_CUSTOM_TOKEN"},
        {R"({"token":""})", "MISSING_CUSTOM_TOKEN"},
        {R"({"token":null})", "MISSING_CUSTOM_TOKEN"},
        {R"({"token":"unknown"})", "INVALID_CUSTOM_TOKEN"},
        {R"({"token":"orvel-custom-","returnSecureToken":true})", "INVALID_CUSTOM_TOKEN"},
        {"nonsense", "The request body is not JSON."},
        {"[]", "The request body must be a JSON object."},
    };
    for (const auto& [body, message] : cases) {
        const auto reply = clientWithoutToken().post(signInPath, body);
        EXPECT_EQ(400, reply.status) << body;
        EXPECT_EQ(message, identityMessage(reply)) << body;
    }
    EXPECT_EQ(400, clientWithoutToken().post(signInPath, R"({"token":1})").status);
    EXPECT_EQ(415, postForm(signInPath, "token=a").status);
}

TEST_F(IdentityEndpointsTest, ReportsWhyARefreshIsRefused) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "INVALID_GRANT_TYPE"},
        {"refresh_token=unknown", "INVALID_GRANT_TYPE"},
        {"grant_type=password&refresh_token=unknown", "INVALID_GRANT_TYPE"},
        {"grant_type=refresh_token", "MISSING_REFRESH_TOKEN"},
        {"grant_type=refresh_token&refresh_token=", "MISSING_REFRESH_TOKEN"},
        {"grant_type=refresh_token&refresh_token=unknown", "INVALID_REFRESH_TOKEN"},
        {"grant_type=refresh_token&refresh_token=%ff%00", "INVALID_REFRESH_TOKEN"},
    };
    for (const auto& [form, message] : cases) {
        const auto reply = postForm(refreshPath, form);
        EXPECT_EQ(400, reply.status) << form;
        EXPECT_EQ(message, identityMessage(reply)) << form;
    }
    EXPECT_EQ(415, clientWithoutToken().post(refreshPath, "{}").status);
}

TEST_F(IdentityEndpointsTest, RequiresItsAPIKeyIfSet) {
    options_.apiKey = "the+key";
    start();
    const auto session = service_->signIn(firstUid);
    for (const auto* query : {"", "?key", "?key=", "?key=other", "?key=the%20key", "?key=the+ke"}) {
        SCOPED_TRACE(query);
        for (const auto& reply :
             {refreshWith(session.refreshToken, query), signInWith("a", query)}) {
            EXPECT_EQ(400, reply.status);
            EXPECT_EQ("API key not valid. Please pass a valid API key.", identityMessage(reply));
        }
    }
    EXPECT_EQ(200, refreshWith(session.refreshToken, "?key=the%2Bkey").status);
    EXPECT_EQ(200, refreshWith(session.refreshToken, "?key=the+key").status);
    EXPECT_EQ(200, signInWith(customToken(), "?key=the%2Bkey").status);
}

TEST_F(IdentityEndpointsTest, GivesIDTokensTheConfiguredLifetime) {
    options_.idTokenLifetime = std::chrono::seconds(90);
    start();
    const auto session = signInWith(customToken()).json();
    EXPECT_EQ("90", session.at("expiresIn"));
    EXPECT_EQ("90", refreshWith(textAt(session, "refreshToken")).json().at("expires_in"));

    advance(std::chrono::seconds(89));
    EXPECT_EQ("200", answerTo(textAt(session, "idToken")));
    advance(std::chrono::seconds(1));
    EXPECT_EQ("401 unauthorized", answerTo(textAt(session, "idToken")));
}

TEST_F(IdentityEndpointsTest, FailsAsScripted) {
    const auto session = service_->signIn(firstUid);
    const auto token = customToken();
    auto fault = service::Fault::identityError(503, "UNAVAILABLE");
    fault.path = refreshPath;
    service_->script(fault);
    auto lost = service::Fault::acceptThenReset();
    lost.path = signInPath;
    service_->script(lost);

    const auto reply = refreshWith(session.refreshToken);
    EXPECT_EQ(503, reply.status);
    EXPECT_EQ("UNAVAILABLE", identityMessage(reply));
    EXPECT_EQ(CURLE_RECV_ERROR, signInWith(token).outcome);
    EXPECT_EQ("INVALID_CUSTOM_TOKEN", identityMessage(signInWith(token)));

    EXPECT_EQ(1U, service_->requestCount(refreshPath));
    EXPECT_EQ(2U, service_->requestCount(signInPath));
}

} // namespace
} // namespace orvel::test
