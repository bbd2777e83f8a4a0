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
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

constexpr const char* expired =
    R"({"ok":false,"error":"Your session has expired.","code":"session_expired"})";

class AppModelScanTest : public AppModelFixture {};

} // namespace

TEST_F(AppModelScanTest, WithoutKnownContactsAKnownContactsScanFails) {
    addMessages(1);
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    beginSignedIn();
    EXPECT_EQ(nextWait(), 60);
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(
        model_->collector().history().front().error,
        "Could not fetch the known-contact list, so this scan was skipped rather than reporting a "
        "false empty result: Busy.");
    EXPECT_EQ(with_.service.requestCount(FakeService::ingestPath), 0U);
    EXPECT_EQ(with_.service.requestCount(FakeService::diagnosticsPath), 0U);
}

TEST_F(AppModelScanTest, WithoutKnownContactsAScanOfAllThreadsStillRuns) {
    addMessages(1);
    with_.userDefaults.set("collection.scope", "allThreads");
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    beginSignedIn();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 1U);
    EXPECT_THAT(
        logged(LogLevel::Error), Contains("going on without the known-contact list: Busy."));
}

TEST_F(AppModelScanTest, TheAddressBookExpandsAndNamesKnownContacts) {
    const auto handle = database_->addHandle("ada@example.com");
    const auto chat = database_->addChat({.guid = "ada", .participants = {handle}});
    database_->addMessage({.guid = "from-ada", .chats = {chat}});
    ContactCard card;
    card.givenName = "Ada";
    card.phoneNumbers = {"+1 415 555 0134"};
    card.emailAddresses = {"ada@example.com"};
    with_.addressBook.cards = {card};
    startSignedIn();
    EXPECT_THAT(with_.service.guids(), ElementsAre("from-ada"));
    const auto& requests = with_.urlSession.requests();
    EXPECT_TRUE(std::ranges::any_of(requests, [](const URLRequest& request) {
        return request.body.value_or("").find(R"("Ada")") != std::string::npos;
    }));
}

TEST_F(AppModelScanTest, LogsThatTheAddressBookAddsNothing) {
    with_.addressBook.cards.emplace_back();
    startSignedIn();
    EXPECT_THAT(
        logged(LogLevel::Error),
        ElementsAre(HasSubstr("address book gave no new identifiers (1 contacts)")));
}

TEST_F(AppModelScanTest, ScansWithoutTheAddressBook) {
    addMessages(1);
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    startSignedIn();
    EXPECT_EQ(with_.service.guids().size(), 1U);
    EXPECT_THAT(logged(LogLevel::Error), ElementsAre(HasSubstr("Contacts access not granted")));
    EXPECT_THAT(with_.addressBook.enumerations, IsEmpty());
}

TEST_F(AppModelScanTest, TheNextScanUsesTheUsersChoices) {
    addMessages(1);
    startSignedIn();
    model_->setMode(CollectionMode::MetadataOnly);
    passWait();
    nextWait();
    EXPECT_EQ(model_->collector().history().at(0).mode, CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->collector().history().at(1).mode, CollectionMode::WithBodies);
}

TEST_F(AppModelScanTest, TheLogOfTheLastTwentyMinutesIsSentAfterEachScan) {
    startSignedIn();
    EXPECT_THAT(with_.service.diagnostics(), Contains(HasSubstr("[collector] scan done")));
    with_.logStore.append(
        {with_.clock.now(), LogLevel::Error, "another.subsystem", "net", "not ours"});
    for (int turn = 0; turn < 2; ++turn) {
        passWait();
        nextWait();
    }
    const auto& lines = with_.service.diagnostics();
    EXPECT_EQ(
        std::ranges::count_if(
            lines,
            [](const std::string& line) {
                return line.find("scan starting") != std::string::npos;
            }),
        2);
    EXPECT_THAT(lines, Each(Not(HasSubstr("not ours"))));
}

TEST_F(AppModelScanTest, IgnoresDiagnosticsThatCannotBeSent) {
    with_.service.setAnswer(FakeService::diagnosticsPath, 500);
    startSignedIn();
    EXPECT_EQ(model_->collector().lastError(), std::nullopt);
}

TEST_F(AppModelScanTest, AnExpiredSessionStopsCollectionUntilTheNextSignIn) {
    startSignedIn();
    with_.service.setAnswer(FakeService::digestPath, 401, expired);
    passWait();
    EXPECT_TRUE(waitUntil([this] { return isWaiting(60); }));
    EXPECT_EQ(model_->blockedReason(), "Sign in to start collecting.");
    with_.clock.advance(60s);
    EXPECT_TRUE(isWaiting(30));

    with_.service.resetAnswer(FakeService::digestPath);
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
}

} // namespace orvel::test
