// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/platform/linux/update/AppcastUpdaterFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using tavrin::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// What is offered to the user, and when.
class AppcastUpdaterOfferTest : public AppcastUpdaterFakeNetwork {};

} // namespace

TEST_F(AppcastUpdaterOfferTest, AScheduledOfferIsGentle) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule"));
    updater().checkForUpdates();
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
    pass(3 * day);
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterOfferTest, AnUnseenOfferIsReplacedByANewerOne) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_EQ(clock_.untilNextTimer(), day);
    pages_.erase(feedURL());
    pass(day);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    offer({item("1.5")});
    pass(hour);
    offer({item("2.0")});
    pass(day);
    EXPECT_EQ(updater().lastUpdateCheckDate(), clock_.now());
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently"));

    offer({item("2.0"), item("2.1")});
    pass(day);
    EXPECT_EQ(requests(), 5U);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.1 gently"));
    EXPECT_THAT(
        observer_.told,
        ElementsAre(
            "checked", "2.0 on schedule", "checked", "checked", "checked", "2.1 on schedule"));
    updater().choose(Choice::Install);
    EXPECT_TRUE(shows("ready 2.1"));
}

TEST_F(AppcastUpdaterOfferTest, AnOfferSeenDuringACheckIsNotReplaced) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    offer({item("2.1")});
    clock_.advance(day);
    updater().checkForUpdates();
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
}

TEST_F(AppcastUpdaterOfferTest, ChecksCanBeSwitchedOffDuringAGentleOffer) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_EQ(clock_.untilNextTimer(), std::nullopt);
    updater().setAutomaticallyChecksForUpdates(true);
    EXPECT_EQ(clock_.untilNextTimer(), day);
}

TEST_F(AppcastUpdaterOfferTest, WithoutGentleOffersAScheduledOfferTakesTheFocus) {
    observer_.isGentle = false;
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 in focus"));
}

TEST_F(AppcastUpdaterOfferTest, ARequestedOfferTakesTheFocus) {
    offer({item("2.0").withElement("description", "Better.")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 asked for"));
    EXPECT_THAT(presenter_.updates(), ElementsAre(SoftwareUpdate{"2.0", "2.0", "Better.", 3}));
}

TEST_F(AppcastUpdaterOfferTest, ARequestDuringAScheduledCheckShowsItsOutcome) {
    updater();
    clock_.advance(Seconds(0));
    updater().checkForUpdates();
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "in focus", "no update"));
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterOfferTest, ADeferredUpdateIsOfferedTheNextDay) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().choose(Choice::Later);
    EXPECT_THAT(observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
    pass(day);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.0 gently"));
}

TEST_F(AppcastUpdaterOfferTest, ASkippedVersionIsOfferedOnlyOnRequest) {
    offer({item("2.0")});
    updater();
    pass(Seconds(0));
    updater().choose(Choice::Skip);
    updater_.reset();
    EXPECT_EQ(storedValue<std::string>(defaults_, UpdateSchedule::skippedKey), "2.0");
    presenter_.clear();

    offer({item("2.0"), item("1.9")});
    updater();
    pass(day);
    EXPECT_EQ(requests(), 2U);
    EXPECT_THAT(presenter_.shown(), IsEmpty());

    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    updater().choose(Choice::Later);

    offer({item("2.0"), item("2.0.1")});
    pass(day);
    EXPECT_EQ(presenter_.shown().back(), "update 2.0.1 gently");
}

TEST_F(AppcastUpdaterOfferTest, LeavesOutSkippedAndOlderVersions) {
    defaults_.set(UpdateSchedule::skippedKey, "2.0");
    offer({item("1.9"), item("2.0")});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    offer({item("2.0"), item("2.0.1")});
    pass(day);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0.1 gently"));
}

TEST_F(AppcastUpdaterOfferTest, AVersionThatIsNotSignedCannotHideOthers) {
    const auto forged = item("2.0").with("orvel:itemSignature", item("1.9").signature());
    offer({forged});
    updater();
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), IsEmpty());
    EXPECT_THAT(
        logged(),
        ElementsAre("The entry of update 2.0 in the feed has no valid signature. It is not "
                    "offered."));
    updater().choose(Choice::Skip);
    EXPECT_FALSE(defaults_.contains(UpdateSchedule::skippedKey));

    offer({forged, item("1.1")});
    pass(hour);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 1.1 gently"));
}

TEST_F(AppcastUpdaterOfferTest, IgnoresAReplayedOlderFeed) {
    for (const char* version : {"0.9", "1.0", "1.0.0", "1.0-rc1"}) {
        offer({item(version)});
        updater().checkForUpdates();
        EXPECT_TRUE(shows("no update")) << version;
        presenter_.clear();
    }
}

TEST_F(AppcastUpdaterOfferTest, NoOlderVersionIsOfferedAfterAnInstallation) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    presenter_.onReadyToInstall = presenter_.onOffer;
    updater().checkForUpdates();
    ASSERT_TRUE(shows("relaunch"));
    offer({item("1.5"), item("2.0")});
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
}

TEST_F(AppcastUpdaterOfferTest, ABadKeyIsReportedBeforeAnythingIsLoaded) {
    key_ = "not a key";
    updater().checkForUpdates();
    EXPECT_THAT(
        presenter_.shown(),
        ElementsAre("The update signing key of this build is not valid, so updates cannot be "
                    "verified."));
    EXPECT_EQ(requests(), 0U);
}

TEST_F(AppcastUpdaterOfferTest, ALogLineNamesTheVersionOnly) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    presenter_.onReadyToInstall = presenter_.onOffer;
    updater().checkForUpdates();
    ASSERT_TRUE(shows("relaunch"));
    EXPECT_THAT(
        logged(),
        ElementsAre("Version 2.0 is available.", "Version 2.0 was verified and installed."));
}

TEST_F(AppcastUpdaterOfferTest, ADownloadMayTakeAnHourAndTheFeedAMinute) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    updater().checkForUpdates();
    ASSERT_TRUE(shows("ready 2.0"));
    ASSERT_EQ(requests(), 2U);
    EXPECT_EQ(session_.requests().front().timeout, Seconds(60));
    EXPECT_EQ(session_.requests().back().timeout, Seconds(3600));
}

} // namespace orvel::test
