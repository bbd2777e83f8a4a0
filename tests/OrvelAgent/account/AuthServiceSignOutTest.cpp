// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;
using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST_F(AuthServiceTest, SigningOutRemovesTheSessionAndTheItemsOfEarlierVersions) {
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

TEST_F(AuthServiceTest, SigningOutClearsTheErrorOfAnotherSignIn) {
    startSignedIn();
    answerWith(exchangePath, 400, R"({"ok":false,"error":"That code was used."})");
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->lastError(), "That code was used.");
    auth_->signOut();
    expectSignedOut();
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

TEST_F(AuthServiceTest, SigningOutDeletesTheTokenInMemory) {
    start();
    runTask(auth_->signIn());
    auth_->signOut();
    EXPECT_EQ(currentToken(), std::nullopt);
}

TEST_F(AuthServiceTest, ANewSessionAfterASignOutStartsItsOwnRefresh) {
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

} // namespace orvel
