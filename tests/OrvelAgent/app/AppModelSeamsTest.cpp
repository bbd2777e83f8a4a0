// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using testing::Contains;
using testing::HasSubstr;
using testing::Pair;
using namespace std::chrono_literals;

/// A scan meets a sign-out, a changed choice or a failure between two of its steps.
class AppModelSeamsTest : public AppModelFixture {
protected:
    /// The first batch is accepted, then the scan waits before the second one.
    void startBackfillOfTwoBatches() {
        addMessages(600);
        beginSignedIn();
        ASSERT_TRUE(waitUntil([this] { return isWaiting(10); }));
        ASSERT_EQ(with_.service.guids().size(), 500U);
    }

    /// The request of that number to the ingest path.
    [[nodiscard]] const URLRequest& upload(std::size_t number) const {
        for (const URLRequest& request : with_.urlSession.requests()) {
            if (request.url.find(FakeService::ingestPath) != std::string::npos && number-- == 0) {
                return request;
            }
        }
        throw std::out_of_range("There is no such upload.");
    }
};

} // namespace

TEST_F(AppModelSeamsTest, ASignOutInThePauseSendsNothingMore) {
    startBackfillOfTwoBatches();
    model_->auth().signOut();
    ASSERT_TRUE(waitUntil([this] { return !model_->collector().isScanning(); }));
    with_.clock.advance(10s);
    processEvents();
    EXPECT_EQ(with_.service.requestCount(FakeService::ingestPath), 1U);
    EXPECT_EQ(with_.service.requestCount(FakeService::diagnosticsPath), 0U);
    EXPECT_EQ(model_->collector().lastError(), std::nullopt);
}

TEST_F(AppModelSeamsTest, ASignInAfterASignOutInAScanIsNoticedSoon) {
    startBackfillOfTwoBatches();
    model_->auth().signOut();
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30) || isWaiting(900); }));
    EXPECT_TRUE(isWaiting(30));
}

TEST_F(AppModelSeamsTest, ASignInAfterASignOutElsewhereIsNoticedSoon) {
    beginSignedIn();
    ASSERT_TRUE(waitUntil([this] { return isWaiting(900); }));
    with_.keychain.items.clear();
    with_.clock.advance(900s);
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30) || isWaiting(900); }));
    EXPECT_TRUE(isWaiting(30));
    EXPECT_FALSE(model_->auth().isSignedIn());
}

TEST_F(AppModelSeamsTest, TheRestOfAScanDoesNotGoToTheNextAccount) {
    startBackfillOfTwoBatches();
    model_->auth().signOut();
    with_.service.setAnswer(FakeService::profilePath, 200, R"({"ok":true,"data":{"uid":"uid-2"}})");
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    ASSERT_TRUE(waitUntil([this] { return !model_->collector().isScanning(); }));
    EXPECT_EQ(with_.service.guids().size(), 500U);
    // The next scan begins anew for the new account, with its token.
    with_.service.hints = {};
    with_.clock.advance(900s);
    ASSERT_TRUE(waitUntil([this] { return scans() == 2; }));
    EXPECT_THAT(
        logged(LogLevel::Default),
        Contains(HasSubstr("starting from the beginning: the account is another one")));
}

TEST_F(AppModelSeamsTest, AnExpiredSessionAtTheDigestSendsNoMessageWithoutAToken) {
    addMessages(1);
    with_.userDefaults.set("collection.scope", "allThreads");
    with_.service.setAnswer(
        FakeService::digestPath,
        401,
        R"({"ok":false,"error":"Your session has expired.","code":"session_expired"})");
    beginSignedIn();
    ASSERT_TRUE(waitUntil([this] { return model_->blockedReason().has_value(); }));
    processEvents();
    EXPECT_EQ(with_.service.requestCount(FakeService::ingestPath), 0U);
}

TEST_F(AppModelSeamsTest, ARefreshThatFailsForAPassingReasonIsRepeatedLikeAnUpload) {
    options_.retryDelays = {5};
    startBackfillOfTwoBatches();
    // The token expires while the scan waits, and the identity provider is busy.
    with_.service.setAnswer(FakeService::refreshPath, 503);
    with_.clock.advance(3600s);
    ASSERT_TRUE(waitUntil([this] { return isWaiting(5); }));
    with_.service.resetAnswer(FakeService::refreshPath);
    with_.clock.advance(5s);
    ASSERT_TRUE(waitUntil([this] { return with_.service.guids().size() == 600; }));
    EXPECT_THAT(upload(1).headers, Contains(Pair("Authorization", "Bearer id-2")));
}

TEST_F(AppModelSeamsTest, ANarrowerModeEndsTheScanAndTheNextBeginsAtOnceWithoutText) {
    startBackfillOfTwoBatches();
    model_->setMode(CollectionMode::MetadataOnly);
    ASSERT_TRUE(waitUntil([this] { return with_.service.guids().size() == 600; }));
    EXPECT_THAT(upload(0).body.value(), HasSubstr("\"body\""));
    EXPECT_THAT(upload(1).body.value(), testing::Not(HasSubstr("\"body\"")));
}

TEST_F(AppModelSeamsTest, ANarrowerScopeEndsTheScanAndTheNextBeginsAtOnce) {
    with_.userDefaults.set("collection.scope", "allThreads");
    with_.service.hints = {"4155550199"};
    startBackfillOfTwoBatches();
    model_->setScope(ThreadScope::KnownContactsOnly);
    ASSERT_TRUE(waitUntil([this] { return scans() == 2; }));
    EXPECT_EQ(with_.service.guids().size(), 500U);
    EXPECT_EQ(model_->collector().history().front().skippedOutOfScope, 100);
}

TEST_F(AppModelSeamsTest, AWiderChoiceWaitsForTheNextScan) {
    with_.userDefaults.set("collection.mode", "metadataOnly");
    startBackfillOfTwoBatches();
    model_->setMode(CollectionMode::WithBodies);
    EXPECT_TRUE(isWaiting(10));
    with_.clock.advance(10s);
    ASSERT_TRUE(waitUntil([this] { return with_.service.guids().size() == 600; }));
    EXPECT_THAT(upload(1).body.value(), testing::Not(HasSubstr("\"body\"")));
}

TEST_F(AppModelSeamsTest, MessagesPassedOverWithoutTheAddressBookAreSentWhenItCanBeRead) {
    const auto handle = database_->addHandle("ada@example.com");
    const auto chat = database_->addChat({.guid = "ada", .participants = {handle}});
    database_->addMessage({.guid = "from-ada", .chats = {chat}});
    ContactCard card;
    card.phoneNumbers = {"+1 415 555 0134"};
    card.emailAddresses = {"ada@example.com"};
    with_.addressBook.cards = {card};
    with_.addressBook.readError.emplace("Test", 1, "The service is not up yet.");
    startSignedIn();
    EXPECT_EQ(with_.service.guids().size(), 0U);
    EXPECT_EQ(model_->collector().history().front().skippedOutOfScope, 1);
    // Another process, at the next login.
    beginSignedIn();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 0U);
    with_.addressBook.readError.reset();
    // This scan only finds that the service is there.
    passWait();
    EXPECT_EQ(nextWait(), 900);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_THAT(with_.service.guids(), testing::ElementsAre("from-ada"));
}

TEST_F(AppModelSeamsTest, MessagesOfPeopleInABookThatCannotBeReadAreSentWhenItCan) {
    const auto ada = database_->addHandle("ada@example.com");
    const auto bob = database_->addHandle("bob@example.com");
    database_->addMessage(
        {.guid = "from-ada", .chats = {database_->addChat({.guid = "a", .participants = {ada}})}});
    database_->addMessage(
        {.guid = "from-bob", .chats = {database_->addChat({.guid = "b", .participants = {bob}})}});
    ContactCard adasCard;
    adasCard.phoneNumbers = {"+1 415 555 0134"};
    adasCard.emailAddresses = {"ada@example.com"};
    ContactCard bobsCard = adasCard;
    bobsCard.emailAddresses = {"bob@example.com"};
    with_.addressBook.cards = {adasCard};
    with_.addressBook.bookError.emplace("Test", 1, "The server of this book does not answer.");
    startSignedIn();
    EXPECT_THAT(with_.service.guids(), testing::ElementsAre("from-ada"));
    with_.addressBook.cards.push_back(bobsCard);
    with_.addressBook.bookError.reset();
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_THAT(with_.service.guids(), testing::Contains("from-bob"));
}

} // namespace orvel::test
