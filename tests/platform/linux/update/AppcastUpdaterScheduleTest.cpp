// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/platform/linux/update/AppcastUpdaterFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <semaphore>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// When checks run, and the stored choices about checks.
class AppcastUpdaterScheduleTest : public AppcastUpdaterFakeNetwork {};

} // namespace

TEST_F(AppcastUpdaterScheduleTest, ChecksAtTheFirstStartAndThenDaily) {
    updater();
    EXPECT_EQ(requests(), 0U);
    pass(Seconds(0));
    EXPECT_EQ(requests(), 1U);
    pass(day - Seconds(1));
    EXPECT_EQ(requests(), 1U);
    pass(Seconds(1));
    EXPECT_EQ(requests(), 2U);
    pass(10 * day);
    EXPECT_EQ(requests(), 3U);
    pass(day);
    EXPECT_EQ(requests(), 4U);
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AppcastUpdaterScheduleTest, TheIntervalContinuesAcrossLaunches) {
    updater();
    pass(Seconds(0));
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now());
    updater_.reset();
    pass(day / 2);
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now() - day / 2);
    pass(day / 2 - Seconds(1));
    EXPECT_EQ(requests(), 1U);
    pass(Seconds(1));
    EXPECT_EQ(requests(), 2U);
}

TEST_F(AppcastUpdaterScheduleTest, ALastCheckInTheFutureDelaysByADayAtMost) {
    defaults_.set(UpdateSchedule::lastCheckKey, clock_.now() + 1000 * day);
    updater();
    EXPECT_EQ(clock_.untilNextTimer(), day);
}

TEST_F(AppcastUpdaterScheduleTest, AFailedCheckIsTriedAgainInAnHour) {
    pages_.erase(feedURL());
    updater();
    pass(Seconds(0));
    EXPECT_EQ(updater().lastUpdateCheckDate(), std::nullopt);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    pass(hour);
    EXPECT_EQ(requests(), 2U);
    offer({});
    pass(hour);
    EXPECT_EQ(requests(), 3U);
    EXPECT_EQ(clock_.untilNextTimer(), day);
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    EXPECT_THAT(
        logged(),
        testing::Each("The update feed could not be loaded: the server answered with status 404."));
}

TEST_F(AppcastUpdaterScheduleTest, AutomaticChecksCanBeSwitchedOffForGood) {
    updater();
    EXPECT_TRUE(updater().automaticallyChecksForUpdates());
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    pass(3 * day);
    updater_.reset();
    EXPECT_EQ(storedValue<bool>(defaults_, UpdateSchedule::automaticKey), false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    pass(3 * day);
    EXPECT_EQ(requests(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);

    updater().setAutomaticallyChecksForUpdates(true);
    pass(Seconds(0));
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterScheduleTest, ARequestedCheckRunsWithoutAutomaticChecks) {
    updater().setAutomaticallyChecksForUpdates(false);
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "no update"));
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
}

TEST_F(AppcastUpdaterScheduleTest, AChoiceThatCannotBeSavedAppliesToThisLaunch) {
    defaults_.setFailsWrites(true);
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(updater().automaticallyChecksForUpdates());
    updater_.reset();
    EXPECT_THAT(logged(), ElementsAre(testing::StartsWith("Could not write the settings")));
}

TEST_F(AppcastUpdaterScheduleTest, SavesChoicesInOrderWithoutWaitingForTheDisk) {
    std::counting_semaphore<> disk(0);
    defaults_.setOnWrite([&disk] { disk.acquire(); });
    updater().setAutomaticallyChecksForUpdates(false);
    updater().setAutomaticallyChecksForUpdates(true);
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_THAT(observer_.saved, IsEmpty());
    EXPECT_FALSE(defaults_.contains(UpdateSchedule::automaticKey));
    std::vector<bool> written;
    for (std::size_t count = 1; count <= 3; ++count) {
        disk.release();
        ASSERT_TRUE(runUntil([&] { return observer_.saved.size() == count; }));
        written.push_back(*storedValue<bool>(defaults_, UpdateSchedule::automaticKey));
    }
    EXPECT_THAT(written, ElementsAre(false, true, false));
}

} // namespace orvel::test
