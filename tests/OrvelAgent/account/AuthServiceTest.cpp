// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthService.h"

#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeKeychain.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::FakeURLSession;
using test::processEvents;
using test::runTask;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Line = test::RecordingLogStore::Line;
using Session = test::FakeWebAuthenticationSession;

const std::string service = "app.test.Agent.session";
const test::FakeKeychain::Name sessionItem(service, "session");

constexpr std::string_view exchangePath = "/api/v1/auth/device/token";
constexpr std::string_view profilePath = "/api/v1/profile";
constexpr std::string_view signInPath = "accounts:signInWithCustomToken";
constexpr std::string_view refreshPath = "/v1/token";

constexpr const char* exchangeReply =
    R"({"ok":true,"data":{"customToken":"custom-secret","uid":"uid-1"}})";
constexpr const char* signInReply =
    R"({"idToken":"id-secret-1","refreshToken":"refresh-secret-1","expiresIn":"3600"})";
constexpr const char* refreshReply =
    R"({"id_token":"id-secret-2","refresh_token":"refresh-secret-2","expires_in":"3600"})";
constexpr const char* profileReply =
    R"({"ok":true,"data":{"uid":"uid-1","email":"one@orvel.example","handle":"one"}})";
constexpr const char* storedSession =
    R"({"refreshToken":"refresh-secret-0","uid":"uid-0","email":"zero@orvel.example",)"
    R"("handle":"zero"})";

std::string rejection(const std::string& message) {
    return R"({"error":{"code":400,"message":")" + message + R"("}})";
}

std::optional<std::string> textOf(const std::optional<tavrin::Secret>& token) {
    return token ? std::optional(token->text()) : std::nullopt;
}

QCoro::Task<> destroyWhenRestored(std::unique_ptr<AuthService>* auth) {
    co_await (*auth)->restored();
    auth->reset();
}

class AuthServiceTest : public testing::Test {
protected:
    AuthServiceTest() {
        bundle_.setInfo("CFBundleIdentifier", "app.test.Agent");
        bundle_.setInfo("API_HOST", "api.test.example");
        bundle_.setInfo("WEB_HOST", "www.test.example");
        bundle_.setInfo("IDENTITY_TOOLKIT_URL", "https://identity.test.example/v1/");
        bundle_.setInfo("SECURE_TOKEN_URL", "https://token.test.example/v1/token");
        answers_[std::string(exchangePath)] = URLResponse{200, exchangeReply};
        answers_[std::string(signInPath)] = URLResponse{200, signInReply};
        answers_[std::string(refreshPath)] = URLResponse{200, refreshReply};
        answers_[std::string(profilePath)] = URLResponse{200, profileReply};
        urlSession_.setHandler([this](const URLRequest& request) { return answer(request); });
        browser_.user = [](const Session::Page&) {
            return Session::Outcome("orvelagent://callback?code=code-secret");
        };
    }

    /// A new process, with everything it finds restored.
    void start() {
        begin();
        runTask(auth_->restored());
    }

    void begin() {
        auth_.reset();
        const AuthService::Dependencies dependencies{
            urlSession_, worker_, keychain_, browser_, workspace_, clock_, log_};
        auth_ = std::make_unique<AuthService>(dependencies, Configuration(bundle_));
    }

    void startSignedIn() {
        keychain_.items[sessionItem] = storedSession;
        start();
    }

    /// Nothing is answered until the test does.
    void hang(std::string_view path) { answers_[std::string(path)] = std::nullopt; }

    void answerWith(std::string_view path, int status, std::string body) {
        answers_[std::string(path)] = URLResponse{status, std::move(body)};
    }

    /// The user takes the sign-in back after that reply has come, and before it is decoded.
    void cancelWithReplyOnItsWay(std::string_view path) {
        urlSession_.setHandler([this, path](const URLRequest& request) {
            if (request.url.find(path) != std::string::npos) {
                // The second turn of the loop comes after the reply, and before what the worker
                // decodes.
                const auto later = [this](const std::function<void()>& job) {
                    QMetaObject::invokeMethod(auth_.get(), job, Qt::QueuedConnection);
                };
                later([this, later] { later([this] { auth_->cancelSignIn(); }); });
            }
            return answer(request);
        });
    }

    std::optional<std::string> currentToken() { return textOf(runTask(auth_->currentToken())); }

    void expectSignedOut() {
        EXPECT_FALSE(auth_->isSignedIn());
        EXPECT_EQ(auth_->accountEmail(), std::nullopt);
        EXPECT_EQ(auth_->accountHandle(), std::nullopt);
        EXPECT_EQ(auth_->lastError(), std::nullopt);
        EXPECT_FALSE(auth_->needsAccount());
        EXPECT_THAT(keychain_.items, IsEmpty());
    }

    /// As if it had never been begun.
    void expectTakenBack() {
        expectSignedOut();
        EXPECT_FALSE(auth_->isSigningIn());
        EXPECT_THAT(errorLines(), IsEmpty());
    }

    [[nodiscard]] std::vector<std::string> errorLines() const {
        std::vector<std::string> messages;
        for (const Line& line : log_.lines()) {
            if (line.level >= LogLevel::Error) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    [[nodiscard]] std::size_t requestCount(std::string_view path) const {
        const auto& requests = urlSession_.requests();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(), [path](const URLRequest& request) {
                return request.url.find(path) != std::string::npos;
            }));
    }

    [[nodiscard]] const URLRequest& lastRequest(std::string_view path) const {
        const auto& requests = urlSession_.requests();
        const auto found =
            std::find_if(requests.rbegin(), requests.rend(), [path](const URLRequest& request) {
                return request.url.find(path) != std::string::npos;
            });
        EXPECT_NE(found, requests.rend());
        return *found;
    }

    static std::optional<std::string> bearer(const URLRequest& request) {
        for (const auto& [name, value] : request.headers) {
            if (name == "Authorization") {
                return value;
            }
        }
        return std::nullopt;
    }

    [[nodiscard]] Line lastLine() const { return log_.lines().back(); }

    test::FakeBundle bundle_;
    test::ManualClock clock_;
    FakeURLSession urlSession_;
    test::FakeKeychain keychain_;
    Session browser_;
    test::FakeWorkspace workspace_;
    test::RecordingLogStore log_;
    Worker worker_;
    std::unique_ptr<AuthService> auth_;
    std::map<std::string, FakeURLSession::Answer> answers_;

private:
    FakeURLSession::Answer answer(const URLRequest& request) {
        for (const auto& [path, answer] : answers_) {
            if (request.url.find(path) != std::string::npos) {
                return answer;
            }
        }
        return URLResponse{404, ""};
    }
};

} // namespace

// --- Start ---

TEST_F(AuthServiceTest, WithoutAStoredSessionItStartsSignedOut) {
    start();
    expectSignedOut();
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionIsRestored) {
    startSignedIn();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "zero@orvel.example");
    EXPECT_EQ(auth_->accountHandle(), "zero");
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionNeedsNothingButTheRefreshToken) {
    keychain_.items[sessionItem] = R"({"refreshToken":"r"})";
    start();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_EQ(auth_->accountHandle(), std::nullopt);
}

TEST_F(AuthServiceTest, AStoredSessionWithAnEmptyRefreshTokenIsSignedOutAndAsksNobody) {
    keychain_.items[sessionItem] = R"({"refreshToken":"","email":"one@orvel.example"})";
    start();
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionThatCannotBeDecodedIsNone) {
    for (const char* text : {"", "{", "[]", "{}", R"({"refreshToken":7})", R"({"uid":"u"})"}) {
        keychain_.items[sessionItem] = text;
        start();
        EXPECT_FALSE(auth_->isSignedIn()) << text;
        EXPECT_EQ(currentToken(), std::nullopt) << text;
    }
}

TEST_F(AuthServiceTest, ALockedKeychainHoldsNothingUp) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    auto restored = auth_->restored();
    processEvents();
    EXPECT_FALSE(restored.isReady());
    EXPECT_FALSE(auth_->isSignedIn());
    int changes = 0;
    QObject::connect(auth_.get(), &AuthService::changed, auth_.get(), [&changes] { ++changes; });
    keychain_.unlock();
    runTask(std::move(restored));
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(changes, 1);
}

TEST_F(AuthServiceTest, ASignInWhileTheKeychainIsLockedIsNotUndoneByTheOldSession) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    keychain_.unlock();
    keychain_.lock();
    auto restored = auth_->restored();
    auto signIn = auth_->signIn();
    processEvents();
    keychain_.unlock();
    runTask(std::move(signIn));
    runTask(std::move(restored));
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
}

TEST_F(AuthServiceTest, ASignOutWhileTheKeychainIsLockedIsNotUndoneByTheOldSession) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    auth_->signOut();
    keychain_.unlock();
    runTask(auth_->restored());
    processEvents();
    expectSignedOut();
}

// --- Sign-in ---

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

TEST_F(AuthServiceTest, OnlyTheProfileIsAskedForWithAToken) {
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

TEST_F(AuthServiceTest, TheNextStartFindsTheSession) {
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
    browser_.user = [](const Session::Page&) {
        return Session::Outcome("orvelagent://callback?error=no_account");
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

TEST_F(AuthServiceTest, EveryOtherFailureIsShownAndLoggedInItsGenericForm) {
    struct Case {
        Session::Outcome outcome;
        std::string text;
    };
    const std::vector<Case> cases{
        {Session::Cancelled(), R"(AuthError(message: "Sign-in was cancelled.", failure: nil))"},
        {Session::NotStarted(),
         R"(AuthError(message: "Could not open the sign-in window.", failure: nil))"},
        {Session::NoResponse(),
         R"(AuthError(message: "Sign-in ended without a response.", failure: nil))"},
        {"orvelagent://callback",
         R"(AuthError(message: "Sign-in did not return an authorization code.", failure: nil))"},
        {"orvelagent://callback?error=denied",
         R"(AuthError(message: "denied", failure: )"
         R"(Optional(TavrinCore.SignInFailure.other("denied"))))"},
    };
    for (const Case& failing : cases) {
        browser_.user = [&failing](const Session::Page&) {
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

TEST_F(AuthServiceTest, ARefusedExchangeIsShownInTheServicesWords) {
    answerWith(
        exchangePath, 400, R"({"ok":false,"error":"That code was used.","code":"invalid_code"})");
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), "That code was used.");
    EXPECT_FALSE(auth_->isSignedIn());
}

TEST_F(AuthServiceTest, ARejectionOfTheIdentityProviderIsShownInItsGenericForm) {
    answerWith(signInPath, 400, rejection("INVALID_CUSTOM_TOKEN"));
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(
        auth_->lastError(),
        R"(IdentityError(message: "INVALID_CUSTOM_TOKEN", status: Optional(400)))");
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_THAT(keychain_.items, IsEmpty());
}

TEST_F(AuthServiceTest, ALostConnectionIsShownAsThePlatformDescribesIt) {
    answers_[std::string(signInPath)] =
        tavrin::URLError(tavrin::URLErrorCode::TimedOut, "The request timed out.");
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), "The request timed out.");
}

TEST_F(AuthServiceTest, ANewSignInForgetsTheFailureOfTheLast) {
    browser_.user = [](const Session::Page&) {
        return Session::Outcome("orvelagent://callback?error=no_account");
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

TEST_F(AuthServiceTest, ASignInCancelledWithTheLastReplyOnItsWayIsNone) {
    start();
    cancelWithReplyOnItsWay(signInPath);
    runTask(auth_->signIn());
    expectTakenBack();
}

TEST_F(AuthServiceTest, ARefusalThatWasOnItsWayWhenTheSignInWasCancelledIsShown) {
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

TEST_F(AuthServiceTest, AfterOneThatWasTakenBackASignInFailsAsEver) {
    browser_.user = nullptr;
    start();
    auto signIn = auth_->signIn();
    auth_->cancelSignIn();
    runTask(std::move(signIn));
    browser_.user = [](const Session::Page&) {
        return Session::Outcome(Session::Cancelled());
    };
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->lastError(), R"(AuthError(message: "Sign-in was cancelled.", failure: nil))");
    EXPECT_THAT(errorLines(), ElementsAre(HasSubstr("sign-in FAILED: ")));
}

TEST_F(AuthServiceTest, ASignInEndsTheRefreshOfTheSessionBefore) {
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

// --- Profile ---

TEST_F(AuthServiceTest, AFailedProfileCallChangesNothing) {
    for (const int status : {404, 500}) {
        answerWith(profilePath, status, "");
        start();
        runTask(auth_->signIn());
        EXPECT_TRUE(auth_->isSignedIn());
        EXPECT_EQ(auth_->lastError(), std::nullopt);
        EXPECT_EQ(auth_->accountEmail(), std::nullopt);
        EXPECT_EQ(keychain_.items[sessionItem], R"({"refreshToken":"refresh-secret-1"})");
    }
}

TEST_F(AuthServiceTest, WhatTheProfileLacksStaysAsItWas) {
    start();
    runTask(auth_->signIn());
    // Signed in again, and the service knows less than before.
    answerWith(profilePath, 200, R"({"ok":true,"data":{"handle":""}})");
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
    EXPECT_EQ(auth_->accountHandle(), "one");
    EXPECT_EQ(keychain_.items[sessionItem], R"({"refreshToken":"refresh-secret-1"})");
}

TEST_F(AuthServiceTest, AnExpiredSessionInTheProfileCallSignsOut) {
    answerWith(
        profilePath, 401, R"({"ok":false,"error":"Session expired.","code":"session_expired"})");
    start();
    runTask(auth_->signIn());
    expectSignedOut();
    EXPECT_FALSE(auth_->isSigningIn());
}

TEST_F(AuthServiceTest, A401WithoutTheCodeInTheProfileCallKeepsTheSession) {
    answerWith(profilePath, 401, R"({"ok":false,"error":"No."})");
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
}

TEST_F(AuthServiceTest, SigningOutWhileTheProfileIsMergedStaysSignedOut) {
    start();
    urlSession_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
        if (request.url.find(profilePath) != std::string::npos) {
            // The stored session is read, and the answer waits.
            keychain_.lock();
            return URLResponse{200, profileReply};
        }
        const bool isExchange = request.url.find(exchangePath) != std::string::npos;
        return URLResponse{200, isExchange ? exchangeReply : signInReply};
    });
    auto signIn = auth_->signIn();
    while (!keychain_.isReadWaiting()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    auth_->signOut();
    keychain_.unlock();
    runTask(std::move(signIn));
    expectSignedOut();
}

TEST_F(AuthServiceTest, ASessionStoredWhileTheProfileIsMergedIsNotReplacedByTheOlder) {
    answerWith(profilePath, 200, profileReply);
    start();
    urlSession_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
        if (request.url.find(profilePath) != std::string::npos) {
            keychain_.lock();
            return URLResponse{200, profileReply};
        }
        if (request.url.find(refreshPath) != std::string::npos) {
            return URLResponse{200, refreshReply};
        }
        const bool isExchange = request.url.find(exchangePath) != std::string::npos;
        return URLResponse{200, isExchange ? exchangeReply : signInReply};
    });
    auto signIn = auth_->signIn();
    while (!keychain_.isReadWaiting()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    clock_.advance(tavrin::Seconds(3600));
    auto token = auth_->currentToken();
    // The refresh reads what is stored, too; it comes to its end first.
    keychain_.unlockLast();
    EXPECT_EQ(textOf(runTask(std::move(token))), "id-secret-2");
    keychain_.unlock();
    runTask(std::move(signIn));
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"refresh-secret-2","uid":"uid-1","email":"one@orvel.example",)"
        R"("handle":"one"})");
}

TEST_F(AuthServiceTest, AProfileWithoutAStoredSessionIsStoredWithAnEmptyRefreshToken) {
    keychain_.losesWrites = true;
    urlSession_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
        if (request.url.find(profilePath) != std::string::npos) {
            keychain_.losesWrites = false;
            return URLResponse{200, profileReply};
        }
        const bool isExchange = request.url.find(exchangePath) != std::string::npos;
        return URLResponse{200, isExchange ? exchangeReply : signInReply};
    });
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"","uid":"uid-1","email":"one@orvel.example","handle":"one"})");
    start();
    EXPECT_FALSE(auth_->isSignedIn());
}

// --- Tokens ---

TEST_F(AuthServiceTest, AFreshTokenIsGivenWithoutARequest) {
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(currentToken(), "id-secret-1");
    clock_.advance(tavrin::Seconds(3600 - 61));
    EXPECT_EQ(currentToken(), "id-secret-1");
    EXPECT_EQ(requestCount(refreshPath), 0U);
}

TEST_F(AuthServiceTest, ATokenIsRefreshedSixtySecondsBeforeItEnds) {
    start();
    runTask(auth_->signIn());
    clock_.advance(tavrin::Seconds(3600 - 60));
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_EQ(requestCount(refreshPath), 1U);
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_EQ(requestCount(refreshPath), 1U);
}

TEST_F(AuthServiceTest, TwoCallsThirtySecondsBeforeTheEndCauseOneRefresh) {
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

TEST_F(AuthServiceTest, ARefreshKeepsWhoTheAccountIs) {
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

TEST_F(AuthServiceTest, AFailureThatMayPassKeepsTheSession) {
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

TEST_F(AuthServiceTest, ASessionThatIsGoneFromTheKeychainGivesNoTokenAndAsksNobody) {
    startSignedIn();
    keychain_.items.clear();
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, ATokenProviderOutlivesTheService) {
    startSignedIn();
    const auto provider = auth_->tokenProvider();
    const auto expired = auth_->sessionExpiredHandler();
    EXPECT_EQ(textOf(runTask(provider())), "id-secret-2");
    auth_.reset();
    EXPECT_EQ(runTask(provider()), std::nullopt);
    runTask(expired());
    EXPECT_FALSE(keychain_.items.empty());
}

// --- Sign-out ---

TEST_F(AuthServiceTest, SigningOutRemovesTheSessionAndWhatEarlierVersionsKept) {
    startSignedIn();
    for (const char* key : {"refreshToken", "uid", "accountEmail", "accountHandle"}) {
        keychain_.items[{service, key}] = "old";
    }
    keychain_.items[{"someone.else", "session"}] = "theirs";
    auth_->signOut();
    EXPECT_THAT(
        keychain_.removals,
        ElementsAre(
            sessionItem,
            std::pair(service, "refreshToken"),
            std::pair(service, "uid"),
            std::pair(service, "accountEmail"),
            std::pair(service, "accountHandle")));
    EXPECT_EQ(keychain_.items.size(), 1U);
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_EQ(auth_->accountHandle(), std::nullopt);
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, SigningOutCancelsARunningRefresh) {
    hang(refreshPath);
    startSignedIn();
    auto first = auth_->currentToken();
    auto second = auth_->currentToken();
    while (requestCount(refreshPath) == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    auth_->signOut();
    EXPECT_EQ(runTask(std::move(first)), std::nullopt);
    EXPECT_EQ(runTask(std::move(second)), std::nullopt);
    processEvents();
    EXPECT_EQ(urlSession_.inFlight(), 0U);
    expectSignedOut();
}

TEST_F(AuthServiceTest, SigningOutForgetsTheTokenInMemory) {
    start();
    runTask(auth_->signIn());
    auth_->signOut();
    EXPECT_EQ(currentToken(), std::nullopt);
}

TEST_F(AuthServiceTest, ANewSessionAfterASignOutIsRefreshedOnItsOwn) {
    hang(refreshPath);
    startSignedIn();
    auto cancelled = auth_->currentToken();
    auth_->signOut();
    EXPECT_EQ(runTask(std::move(cancelled)), std::nullopt);
    runTask(auth_->signIn());
    answerWith(refreshPath, 200, refreshReply);
    clock_.advance(tavrin::Seconds(3600));
    EXPECT_EQ(currentToken(), "id-secret-2");
    EXPECT_TRUE(auth_->isSignedIn());
}

// --- What can go wrong around it ---

TEST_F(AuthServiceTest, WithoutAKeychainTheSessionLivesInMemory) {
    keychain_.writeError = tavrin::PlatformError("Keychain", 1, "There is no keychain.");
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    clock_.advance(tavrin::Seconds(3600));
    EXPECT_EQ(currentToken(), "id-secret-2");
    const auto failure = runTask(auth_->stored());
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->what(), "There is no keychain.");
    EXPECT_THAT(keychain_.items, IsEmpty());
}

TEST_F(AuthServiceTest, ASessionThatCannotBeRemovedIsSaidWhateverElseCanBe) {
    startSignedIn();
    keychain_.errorsByAccount.emplace(
        "session", tavrin::PlatformError("Keychain", 2, "The keychain is locked."));
    auth_->signOut();
    const auto failure = runTask(auth_->stored());
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->what(), "The keychain is locked.");
    keychain_.errorsByAccount.clear();
    auth_->signOut();
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
}

TEST_F(AuthServiceTest, WaitingForTheKeychainCanBeCancelled) {
    keychain_.lock();
    begin();
    tavrin::CancellationSource source;
    auto restored = auth_->restored(source.token());
    auth_->signOut();
    begin();
    auto waiting = auth_->restored(source.token());
    auto stored = auth_->stored(source.token());
    source.cancel();
    runTask(std::move(restored));
    EXPECT_THROW(runTask(std::move(waiting)), tavrin::TaskCancelled);
    EXPECT_EQ(runTask(std::move(stored)), std::nullopt);
    EXPECT_THROW(static_cast<void>(runTask(auth_->stored(source.token()))), tavrin::TaskCancelled);
}

TEST_F(AuthServiceTest, ItIsStoredWhenTheKeychainHasEveryChange) {
    start();
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
    runTask(auth_->signIn());
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
    EXPECT_EQ(keychain_.items.size(), 1U);
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

TEST_F(AuthServiceTest, NoLogLineAndNoErrorHoldsASecret) {
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

TEST_F(AuthServiceTest, ItMayBeDestroyedWhileTheKeychainIsLocked) {
    keychain_.lock();
    begin();
    auto restored = auth_->restored();
    auth_.reset();
    EXPECT_THROW(runTask(std::move(restored)), tavrin::TaskCancelled);
    keychain_.unlock();
    processEvents();
}

TEST_F(AuthServiceTest, ItMayBeDestroyedWhileTheBrowserIsOpen) {
    browser_.user = nullptr;
    start();
    auto signIn = auth_->signIn();
    auth_.reset();
    runTask(std::move(signIn));
    EXPECT_FALSE(browser_.isWaiting());
}

TEST_F(AuthServiceTest, ItMayBeDestroyedInEveryRequest) {
    for (const std::string_view path : {exchangePath, signInPath, profilePath, refreshPath}) {
        keychain_.items.clear();
        hang(path);
        start();
        auto signIn = auth_->signIn();
        std::optional<QCoro::Task<std::optional<tavrin::Secret>>> token;
        if (path == refreshPath) {
            runTask(std::move(signIn));
            clock_.advance(tavrin::Seconds(3600));
            token = auth_->currentToken();
        }
        while (urlSession_.inFlight() == 0 || requestCount(path) == 0) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        auth_.reset();
        if (token) {
            EXPECT_EQ(runTask(*std::move(token)), std::nullopt);
        } else {
            runTask(std::move(signIn));
        }
        processEvents();
        EXPECT_EQ(urlSession_.inFlight(), 0U);
        answerWith(exchangePath, 200, exchangeReply);
        answerWith(signInPath, 200, signInReply);
        answerWith(profilePath, 200, profileReply);
    }
}

TEST_F(AuthServiceTest, ItMayBeDestroyedByWhoeverHearsOfAChange) {
    for (int ending = 1; ending <= 4; ++ending) {
        keychain_.items.clear();
        start();
        int changes = 0;
        const QObject context;
        QObject::connect(auth_.get(), &AuthService::changed, &context, [&] {
            if (++changes == ending) {
                auth_.reset();
            }
        });
        runTask(auth_->signIn());
        EXPECT_EQ(auth_, nullptr) << ending;
    }
}

TEST_F(AuthServiceTest, ItMayBeDestroyedByWhoeverWaitedForTheSession) {
    for (const bool isSigningIn : {false, true}) {
        keychain_.lock();
        begin();
        auto destroyed = destroyWhenRestored(&auth_);
        if (isSigningIn) {
            runTask(auth_->signIn());
        } else {
            auth_->signOut();
        }
        runTask(std::move(destroyed));
        EXPECT_EQ(auth_, nullptr);
        keychain_.unlock();
        processEvents();
        keychain_.items.clear();
    }
}

} // namespace orvel
