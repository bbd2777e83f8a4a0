// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::runTask;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

} // namespace

TEST_F(AuthServiceTest, AValidTokenNeedsNoRequest) {
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(currentToken(), "id-secret-1");
    clock_.advance(tavrin::Seconds(3600 - 61));
    EXPECT_EQ(currentToken(), "id-secret-1");
    EXPECT_EQ(requestCount(refreshPath), 0U);
}

TEST_F(AuthServiceTest, ATokenIsRefreshedSixtySecondsBeforeItExpires) {
    start();
    runTask(auth_->signIn());
    clock_.advance(tavrin::Seconds(3600 - 60));
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_EQ(requestCount(refreshPath), 1U);
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_EQ(requestCount(refreshPath), 1U);
}

TEST_F(AuthServiceTest, TwoCallsThirtySecondsBeforeExpiryCauseOneRefresh) {
    start();
    runTask(auth_->signIn());
    clock_.advance(tavrin::Seconds(3600 - 30));
    auto first = auth_->currentToken();
    auto second = auth_->currentToken();
    EXPECT_EQ(textOf(runTask(std::move(first))), "id-secret-2");
    EXPECT_EQ(textOf(runTask(std::move(second))), "id-secret-2");
    EXPECT_EQ(requestCount(refreshPath), 1U);
}

TEST_F(AuthServiceTest, AfterARestartTheFirstCallRefreshes) {
    startSignedIn();
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_THAT(lastRequest(refreshPath).body.value(), HasSubstr("refresh-secret-0"));
}

TEST_F(AuthServiceTest, ARefreshKeepsTheAccountFields) {
    startSignedIn();
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"refresh-secret-2","uid":"uid-0","email":"zero@orvel.example",)"
        R"("handle":"zero"})");
}

TEST_F(AuthServiceTest, EveryRevocationSignsOut) {
    for (const char* message :
         {"TOKEN_EXPIRED",
          "USER_DISABLED",
          "USER_NOT_FOUND",
          "INVALID_REFRESH_TOKEN",
          "INVALID_GRANT",
          "MISSING_REFRESH_TOKEN",
          "CREDENTIAL_TOO_OLD_LOGIN_AGAIN",
          "TOKEN_REVOKED"}) {
        answerWith(refreshPath, 400, rejection(message));
        startSignedIn();
        EXPECT_EQ(currentToken(), std::nullopt) << message;
        expectSignedOut();
        const Line expected{LogLevel::Info, "auth", "session revoked by server; signing out"};
        EXPECT_EQ(lastLine(), expected) << message;
    }
}

TEST_F(AuthServiceTest, ATransientFailureKeepsTheSession) {
    struct Case {
        FakeURLSession::Answer answer;
        std::string text;
    };
    const std::vector<Case> cases{
        {URLResponse{503, ""}, R"(IdentityError(message: "HTTP 503", status: Optional(503)))"},
        {URLResponse{400, rejection("token_expired")},
         R"(IdentityError(message: "token_expired", status: Optional(400)))"},
        {tavrin::URLError(tavrin::URLErrorCode::NotConnectedToInternet, "You are offline."),
         "You are offline."},
        {URLResponse{200, R"({"id_token":"id","refresh_token":"","expires_in":"3600"})"},
         R"(The JSON key "refresh_token" is not a token.)"},
    };
    for (const Case& failing : cases) {
        answers_[std::string(refreshPath)] = failing.answer;
        startSignedIn();
        EXPECT_EQ(currentToken(), std::nullopt);
        EXPECT_TRUE(auth_->isSignedIn());
        EXPECT_EQ(keychain_.items[sessionItem], storedSession);
        const Line expected{
            LogLevel::Info,
            "auth",
            "token refresh failed transiently; staying signed in: " + failing.text};
        EXPECT_EQ(lastLine(), expected);
        answerWith(refreshPath, 200, refreshReply);
        EXPECT_EQ(currentToken(), "id-secret-2");
    }
}

TEST_F(AuthServiceTest, WithoutAKeychainItemThereIsNoTokenAndNoRequest) {
    startSignedIn();
    keychain_.items.clear();
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_FALSE(auth_->isSignedIn()) << "another process has signed out";
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, ATokenProviderOutlivesTheService) {
    startSignedIn();
    const AccountSession session = runTask(auth_->session()).value();
    EXPECT_EQ(textOf(runTask(session.tokenProvider())), "id-secret-2");
    auth_.reset();
    EXPECT_THROW(runTask(session.tokenProvider()), tavrin::TaskCancelled);
    runTask(session.onSessionExpired());
    EXPECT_FALSE(keychain_.items.empty());
}

TEST_F(AuthServiceTest, NoLogLineAndNoErrorContainsASecret) {
    start();
    runTask(auth_->signIn());
    for (const int status : {200, 400, 503}) {
        answerWith(refreshPath, status, "id-secret refresh-secret");
        clock_.advance(tavrin::Seconds(3600));
        runTask(auth_->currentToken());
        answerWith(signInPath, status, "id-secret refresh-secret");
        runTask(auth_->signIn());
        EXPECT_THAT(auth_->lastError().value_or(""), Not(HasSubstr("secret")));
    }
    for (const Line& line : log_.lines()) {
        EXPECT_THAT(line.message, Not(HasSubstr("secret")));
    }
}

} // namespace orvel
