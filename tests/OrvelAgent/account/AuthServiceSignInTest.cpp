// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

} // namespace

TEST_F(AuthServiceTest, SigningInStoresTheSessionAndLoadsTheProfile) {
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_FALSE(auth_->isSigningIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
    EXPECT_EQ(auth_->accountHandle(), "one");
    EXPECT_EQ(auth_->lastError(), std::nullopt);
    EXPECT_FALSE(auth_->needsAccount());
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"refresh-secret-1","uid":"uid-1","email":"one@orvel.example",)"
        R"("handle":"one"})");
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(
            Line{LogLevel::Default, "auth", "sign-in: opening browser"},
            Line{
                LogLevel::Default, "auth", "sign-in: got custom token, exchanging for an ID token"},
            Line{LogLevel::Default, "auth", "sign-in: succeeded"}));
}

TEST_F(AuthServiceTest, OnlyTheProfileRequestCarriesAToken) {
    start();
    runTask(auth_->signIn());
    ASSERT_EQ(urlSession_.requests().size(), 3U);
    EXPECT_EQ(bearer(lastRequest(exchangePath)), std::nullopt);
    EXPECT_EQ(bearer(lastRequest(signInPath)), std::nullopt);
    const URLRequest& profile = lastRequest(profilePath);
    EXPECT_EQ(bearer(profile), "Bearer id-secret-1");
    EXPECT_EQ(profile.url, "https://api.test.example/api/v1/profile");
    EXPECT_EQ(profile.method, "GET");
    EXPECT_EQ(profile.body, std::nullopt);
    EXPECT_EQ(profile.timeout, tavrin::Seconds(60));
}

TEST_F(AuthServiceTest, TheNextStartRestoresTheSession) {
    start();
    runTask(auth_->signIn());
    start();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_THAT(lastRequest(refreshPath).body.value(), HasSubstr("refresh-secret-1"));
}

TEST_F(AuthServiceTest, ASecondSignInWhileOneRunsDoesNothing) {
    browser_.user = nullptr;
    start();
    auto first = auth_->signIn();
    EXPECT_TRUE(auth_->isSigningIn());
    runTask(auth_->signIn());
    EXPECT_EQ(browser_.pages().size(), 1U);
    EXPECT_TRUE(auth_->isSigningIn());
    browser_.finish("orvelagent://callback?code=code-secret");
    runTask(std::move(first));
    EXPECT_TRUE(auth_->isSignedIn());
}

TEST_F(AuthServiceTest, AnIdentityWithoutAnAccountOpensTheWebsite) {
    browser_.user = [](const Browser::Page&) {
        return Browser::Outcome("orvelagent://callback?error=no_account");
    };
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->needsAccount());
    EXPECT_EQ(auth_->lastError(), "That sign-in has no Orvel Agent account.");
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_FALSE(auth_->isSigningIn());
    EXPECT_THAT(workspace_.openedURLs, ElementsAre("https://www.test.example"));
    const Line expected{
        LogLevel::Default, "auth", "sign-in: no account for that identity; opening the website"};
    EXPECT_EQ(lastLine(), expected);
}

TEST_F(AuthServiceTest, OtherFailuresAreShownAndLoggedAsRendered) {
    struct Case {
        Browser::Outcome outcome;
        std::string text;
    };
    const std::vector<Case> cases{
        {Browser::Cancelled(), R"(AuthError(message: "Sign-in was cancelled.", failure: nil))"},
        {Browser::NotStarted(),
         R"(AuthError(message: "Could not open the sign-in window.", failure: nil))"},
        {Browser::NoResponse(),
         R"(AuthError(message: "Sign-in ended without a response.", failure: nil))"},
        {"orvelagent://callback",
         R"(AuthError(message: "Sign-in did not return an authorization code.", failure: nil))"},
        {"orvelagent://callback?error=denied",
         R"(AuthError(message: "denied", failure: )"
         R"(Optional(TavrinCore.SignInFailure.other("denied"))))"},
    };
    for (const Case& failing : cases) {
        browser_.user = [&failing](const Browser::Page&) {
            return failing.outcome;
        };
        start();
        runTask(auth_->signIn());
        EXPECT_EQ(auth_->lastError(), failing.text);
        const Line expected{LogLevel::Error, "auth", "sign-in FAILED: " + failing.text};
        EXPECT_EQ(lastLine(), expected);
        EXPECT_FALSE(auth_->needsAccount());
        EXPECT_FALSE(auth_->isSignedIn());
        EXPECT_FALSE(auth_->isSigningIn());
    }
    EXPECT_THAT(workspace_.openedURLs, IsEmpty());
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, ACallbackThatMayComeFromAnyPageShowsNoTextOfIt) {
    browser_.user = nullptr;
    browser_.isOpenToAnyPage = true;
    start();
    auto signIn = auth_->signIn();
    browser_.finish("orvelagent://callback");
    browser_.finish("orvelagent://callback?code=");
    browser_.finish("orvelagent://callback?x=Call%20555%200100");
    processEvents();
    EXPECT_TRUE(auth_->isSigningIn());
    browser_.finish("orvelagent://callback?error=Call%20555%200100");
    runTask(std::move(signIn));
    EXPECT_EQ(
        auth_->lastError(),
        R"(AuthError(message: "The sign-in page reported an error.", failure: nil))");
    for (const Line& line : log_.lines()) {
        EXPECT_THAT(line.message, Not(HasSubstr("555")));
    }
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, ARefusedExchangeShowsTheServicesErrorText) {
    answerWith(
        exchangePath, 400, R"({"ok":false,"error":"That code was used.","code":"invalid_code"})");
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), "That code was used.");
    EXPECT_FALSE(auth_->isSignedIn());
}

TEST_F(AuthServiceTest, ARefusalByTheIdentityProviderIsShownAsRendered) {
    answerWith(signInPath, 400, rejection("INVALID_CUSTOM_TOKEN"));
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(
        auth_->lastError(),
        R"(IdentityError(message: "INVALID_CUSTOM_TOKEN", status: Optional(400)))");
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_THAT(keychain_.items, IsEmpty());
}

TEST_F(AuthServiceTest, ASignInWithoutUsableTokensFails) {
    for (const char* reply :
         {R"({"idToken":"id-secret-1","refreshToken":"","expiresIn":"3600"})",
          R"({"idToken":"id-secret-1","refreshToken":"a\r\nb","expiresIn":"3600"})"}) {
        answerWith(signInPath, 200, reply);
        start();
        runTask(auth_->signIn());
        EXPECT_EQ(auth_->lastError(), R"(The JSON key "refreshToken" is not a token.)");
        EXPECT_FALSE(auth_->isSignedIn());
        EXPECT_THAT(keychain_.items, IsEmpty());
        EXPECT_EQ(requestCount(profilePath), 0U);
    }
}

TEST_F(AuthServiceTest, ALostConnectionIsShownAsThePlatformDescribesIt) {
    answers_[std::string(signInPath)] =
        tavrin::URLError(tavrin::URLErrorCode::TimedOut, "The request timed out.");
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), "The request timed out.");
}

TEST_F(AuthServiceTest, ANewSignInClearsTheLastError) {
    browser_.user = [](const Browser::Page&) {
        return Browser::Outcome("orvelagent://callback?error=no_account");
    };
    start();
    runTask(auth_->signIn());
    browser_.user = nullptr;
    auto signIn = auth_->signIn();
    EXPECT_EQ(auth_->lastError(), std::nullopt);
    EXPECT_FALSE(auth_->needsAccount());
    auth_->cancelSignIn();
    runTask(std::move(signIn));
}

TEST_F(AuthServiceTest, ASignInCanBeCancelledWhileTheBrowserIsOpen) {
    browser_.user = nullptr;
    start();
    auto signIn = auth_->signIn();
    auth_->cancelSignIn();
    runTask(std::move(signIn));
    expectTakenBack();
    EXPECT_FALSE(browser_.isWaiting());
}

TEST_F(AuthServiceTest, ASignInCanBeCancelledWhileItWaitsForTheServer) {
    hang(signInPath);
    start();
    auto signIn = auth_->signIn();
    while (urlSession_.inFlight() == 0 || requestCount(signInPath) == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    auth_->cancelSignIn();
    runTask(std::move(signIn));
    expectTakenBack();
}

TEST_F(AuthServiceTest, ASignInCancelledAfterTheLastReplyDoesNotSignIn) {
    start();
    cancelWithReplyOnItsWay(signInPath);
    runTask(auth_->signIn());
    expectTakenBack();
}

TEST_F(AuthServiceTest, ARefusalReceivedBeforeTheCancellationIsShown) {
    answerWith(
        exchangePath, 400, R"({"ok":false,"error":"That code was used.","code":"invalid_code"})");
    start();
    cancelWithReplyOnItsWay(exchangePath);
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), "That code was used.");
    EXPECT_FALSE(auth_->isSigningIn());
    EXPECT_THAT(errorLines(), ElementsAre("sign-in FAILED: That code was used."));

    answerWith(exchangePath, 200, exchangeReply);
    answerWith(signInPath, 400, rejection("INVALID_CUSTOM_TOKEN"));
    cancelWithReplyOnItsWay(signInPath);
    runTask(auth_->signIn());
    EXPECT_THAT(auth_->lastError().value_or(""), HasSubstr("INVALID_CUSTOM_TOKEN"));
    EXPECT_EQ(errorLines().size(), 2U);
}

TEST_F(AuthServiceTest, ASignInAfterACancelledOneReportsItsFailure) {
    browser_.user = nullptr;
    start();
    auto signIn = auth_->signIn();
    auth_->cancelSignIn();
    runTask(std::move(signIn));
    browser_.user = [](const Browser::Page&) {
        return Browser::Outcome(Browser::Cancelled());
    };
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), R"(AuthError(message: "Sign-in was cancelled.", failure: nil))");
    EXPECT_THAT(errorLines(), ElementsAre(HasSubstr("sign-in FAILED: ")));
}

TEST_F(AuthServiceTest, ASignInEndsTheRefreshOfThePreviousSession) {
    hang(refreshPath);
    startSignedIn();
    auto waiting = auth_->currentToken();
    while (requestCount(refreshPath) == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    runTask(auth_->signIn());
    EXPECT_EQ(textOf(runTask(std::move(waiting))), "id-secret-1");
    EXPECT_THAT(keychain_.items[sessionItem], HasSubstr("refresh-secret-1"));
    processEvents();
    EXPECT_EQ(urlSession_.inFlight(), 0U);
}

TEST_F(AuthServiceTest, AWebsiteThatCannotBeOpenedIsLogged) {
    workspace_.openError = tavrin::PlatformError("Workspace", 3, "There is no browser.");
    start();
    auth_->openAccountPage();
    processEvents();
    const Line expected{
        LogLevel::Error, "auth", "could not open the website: There is no browser."};
    EXPECT_EQ(lastLine(), expected);
}

} // namespace orvel
