// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;

} // namespace

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

TEST_F(AuthServiceTest, FieldsMissingInTheProfileAreNotThoseOfTheSessionBefore) {
    start();
    runTask(auth_->signIn());
    // Sign in again. The profile now has fewer fields.
    answerWith(profilePath, 200, R"({"ok":true,"data":{"handle":""}})");
    runTask(auth_->signIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_EQ(auth_->accountHandle(), std::nullopt);
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
            // The stored session has been read, but not delivered.
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

TEST_F(AuthServiceTest, ASessionStoredWhileTheProfileIsMergedIsNotOverwritten) {
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
    // The refresh also reads the stored session, before and after its request, and ends first.
    keychain_.unlockLast();
    while (keychain_.waitingReads() < 2) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    keychain_.unlockLast();
    EXPECT_EQ(textOf(runTask(std::move(token))), "id-secret-2");
    keychain_.unlock();
    runTask(std::move(signIn));
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"refresh-secret-2","uid":"uid-1","email":"one@orvel.example",)"
        R"("handle":"one"})");
}

TEST_F(AuthServiceTest, ASignOutByAnotherProcessWhileTheProfileIsLoadedIsNotMissed) {
    start();
    urlSession_.setHandler([this](const URLRequest& request) {
        if (request.url.find(profilePath) != std::string::npos) {
            keychain_.items.clear();
            return URLResponse{200, profileReply};
        }
        const bool isExchange = request.url.find(exchangePath) != std::string::npos;
        return URLResponse{200, isExchange ? exchangeReply : signInReply};
    });
    runTask(auth_->signIn());
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_TRUE(keychain_.items.empty());
    EXPECT_EQ(currentToken(), std::nullopt);
}

TEST_F(AuthServiceTest, ASecondSignInWithoutAProfileDoesNotShowTheFirstAccount) {
    startSignedIn();
    EXPECT_EQ(auth_->accountEmail(), "zero@orvel.example");
    answerWith(profilePath, 503, "Busy.");
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_EQ(auth_->accountHandle(), std::nullopt);
}

TEST_F(AuthServiceTest, TheAccountOfTheProfileIsCutAndCleaned) {
    const std::string text = R"(\u001b[2J\u009b\u202e)" + std::string(1'000'000, 'x');
    answerWith(
        profilePath,
        200,
        R"({"ok":true,"data":{"email":")" + text + R"(","handle":")" + text + "\"}}");
    start();
    runTask(auth_->signIn());
    const std::string shown = "\uFFFD[2J\uFFFD\uFFFD" + std::string(494, 'x');
    EXPECT_EQ(auth_->accountEmail(), shown);
    EXPECT_EQ(auth_->accountHandle(), shown);
}

TEST_F(AuthServiceTest, TheAccountOfAStoredSessionIsCutAndCleaned) {
    keychain_.items[sessionItem] =
        R"({"refreshToken":"r","email":"a\u001b\u202eb","handle":"\u009b"})";
    start();
    EXPECT_EQ(auth_->accountEmail(), "a\uFFFD\uFFFDb");
    EXPECT_EQ(auth_->accountHandle(), "\uFFFD");
}

} // namespace orvel
