// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/CollectionLoop.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using namespace std::chrono_literals;

/// `schedule` throws, which the port does not allow.
class ThrowingClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override { return {}; }
    [[nodiscard]] tavrin::Seconds uptime() const override { return {}; }
    [[nodiscard]] std::unique_ptr<Timer> schedule(tavrin::Seconds, std::function<void()>) override {
        throw std::runtime_error("There are no more timers.");
    }
};

class CollectionLoopTest : public AppModelFixture {};

} // namespace

TEST_F(CollectionLoopTest, ScansAtTheStartAndEveryFifteenMinutes) {
    addMessages(3);
    startSignedIn();
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.service.guids().size(), 3U);
    addMessages(1);
    with_.clock.advance(899s);
    EXPECT_EQ(with_.service.requestCount(FakeService::digestPath), 1U);
    with_.clock.advance(1s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
    EXPECT_EQ(with_.service.guids().back(), "message-4");
}

TEST_F(CollectionLoopTest, WaitsForTheStoredSessionBeforeTheFirstScan) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    with_.keychain.lock();
    beginSignedIn();
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    // Part of the first check of the permissions.
    EXPECT_TRUE(waitUntil(
        [this] { return model_->contactsAvailability() == ContactBridge::Availability::Denied; }));
    EXPECT_FALSE(isWaiting(30));
    with_.keychain.unlock();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 1U);
}

TEST_F(CollectionLoopTest, EachFailureDoublesTheWaitUpToFiveMinutes) {
    with_.fileCopier.setFails(true);
    beginSignedIn();
    std::vector<double> waits;
    for (int failure = 1; failure <= 10; ++failure) {
        waits.push_back(nextWait());
        EXPECT_EQ(scans(), static_cast<std::size_t>(failure));
        passWait();
    }
    EXPECT_THAT(waits, ElementsAre(60, 120, 240, 300, 300, 300, 300, 300, 300, 300));
    EXPECT_EQ(nextWait(), 300);

    with_.fileCopier.setFails(false);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    with_.fileCopier.setFails(true);
    passWait();
    EXPECT_EQ(nextWait(), 60);
}

TEST_F(CollectionLoopTest, ASkippedScanKeepsTheFailureCount) {
    with_.fileCopier.setFails(true);
    beginSignedIn();
    EXPECT_EQ(nextWait(), 60);
    passWait();
    EXPECT_EQ(nextWait(), 120);
    passWait();
    // The loop has just started a scan.
    model_->collector().setPaused(true);
    EXPECT_EQ(nextWait(), 120);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(CollectionLoopTest, ScansAgainAfterAnUnexpectedError) {
    auto broken = std::make_unique<ThrowingAddressBook>();
    ThrowingAddressBook& addressBook = *broken;
    with_.platform.addressBook = std::move(broken);
    startSignedIn();
    addressBook.throws = true;
    with_.clock.advance(900s);
    EXPECT_EQ(nextWait(), 60);
    EXPECT_EQ(model_->collector().history().front().error, "The address book is out of order.");
    addressBook.throws = false;
    with_.clock.advance(60s);
    EXPECT_EQ(nextWait(), 900);
}

TEST_F(CollectionLoopTest, ChecksFullDiskAccessAgainAfterAnUnexpectedError) {
    options_.sourcePath = (directory_ / "later.db").string();
    auto broken = std::make_unique<ThrowingAddressBook>();
    ThrowingAddressBook& addressBook = *broken;
    with_.platform.addressBook = std::move(broken);
    beginSignedIn();
    addressBook.throws = true;
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    EXPECT_THAT(
        logged(LogLevel::Error),
        Contains("could not look at the permissions: The address book is out of order."));
    addressBook.throws = false;
    const MessagesDatabaseBuilder later(directory_ / "later.db");
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 1U);
}

TEST_F(CollectionLoopTest, LogsAThrowingClockAndStopsWithoutDelay) {
    const auto former = std::exchange(with_.platform.clock, std::make_unique<ThrowingClock>());
    begin();
    EXPECT_TRUE(waitUntil([this] { return logged(LogLevel::Error).size() == 2; }));
    EXPECT_THAT(
        logged(LogLevel::Error),
        ElementsAre(
            "the attention flash has ended: There are no more timers.",
            "collection has ended: There are no more timers."));
    runTask(model_->stop());
    EXPECT_EQ(
        logged(LogLevel::Error).back(),
        "quitting without waiting for what was left to do: There are no more timers.");
    model_.reset();
}

TEST_F(CollectionLoopTest, WhileBlockedItChecksEveryThirtySeconds) {
    startSignedOut();
    EXPECT_TRUE(with_.urlSession.requests().empty());
    for (int look = 0; look < 5; ++look) {
        with_.clock.advance(30s);
        EXPECT_TRUE(isWaiting(30));
    }
    EXPECT_EQ(scans(), 0U);
    EXPECT_TRUE(with_.urlSession.requests().empty());
}

TEST_F(CollectionLoopTest, WakesUpLessThanOnceInTenSecondsWhenIdle) {
    startSignedIn();
    EXPECT_LT(wakeUpsInAnHour(), 360);
    EXPECT_EQ(scans(), 5U);
}

TEST_F(CollectionLoopTest, DetectsASignInWithoutARestart) {
    addMessages(2);
    startSignedOut();
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(with_.service.guids().size(), 2U);
}

TEST_F(CollectionLoopTest, DetectsFullDiskAccessWithoutARestart) {
    options_.sourcePath = (directory_ / "later.db").string();
    with_.storeSession();
    begin();
    EXPECT_TRUE(waitUntil([this] { return isWaiting(30); }));
    EXPECT_FALSE(model_->hasFullDiskAccess());
    EXPECT_EQ(model_->blockedReason(), "Full Disk Access is required to read Messages.");
    EXPECT_EQ(scans(), 0U);

    const MessagesDatabaseBuilder later(directory_ / "later.db");
    with_.clock.advance(30s);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_TRUE(model_->hasFullDiskAccess());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    EXPECT_EQ(scans(), 1U);
}

TEST_F(CollectionLoopTest, APauseBlocksScansUntilItEnds) {
    startSignedIn();
    model_->collector().setPaused(true);
    passWait();
    EXPECT_EQ(nextWait(), 30);
    EXPECT_EQ(model_->blockedReason(), "Collection is paused.");
    model_->collector().setPaused(false);
    passWait();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(CollectionLoopTest, ScansOnceAfterEightHoursOfSleep) {
    startSignedIn();
    with_.clock.advance(8h);
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 2U);
}

TEST_F(CollectionLoopTest, ASecondStartStartsNoSecondLoop) {
    beginSignedIn();
    model_->startCollecting();
    EXPECT_EQ(nextWait(), 900);
    model_->startCollecting();
    EXPECT_EQ(nextWait(), 900);
    EXPECT_EQ(scans(), 1U);
    EXPECT_EQ(with_.service.requestCount(FakeService::digestPath), 1U);
}

} // namespace orvel::test
