// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/platform/linux/update/AppcastUpdaterFixture.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using tavrin::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// Cancelling, stopping and destroying the updater at every step.
class AppcastUpdaterInterruptionTest : public AppcastUpdaterFakeNetwork {};

} // namespace

TEST_F(AppcastUpdaterInterruptionTest, ACheckCanBeCancelled) {
    session_.enqueue(FakeURLSession::Answer());
    updater().checkForUpdates();
    updater().choose(Choice::Cancel);
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(clock_.untilNextTimer(), hour);
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
}

TEST_F(AppcastUpdaterInterruptionTest, TheObserverCanCancelACheck) {
    offer({item("2.0")});
    observer_.onCheck = [this] {
        updater_->choose(Choice::Cancel);
    };
    updater().checkForUpdates();
    ASSERT_TRUE(runUntil([this] { return observer_.checks == 1; }));
    EXPECT_THAT(observer_.told, ElementsAre("checked"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_EQ(clock_.untilNextTimer(), hour);
}

TEST_F(AppcastUpdaterInterruptionTest, ACheckCanBeCancelledWhileItsFeedIsRead) {
    offer({item("2.0")});
    updater().checkForUpdates();
    ASSERT_TRUE(runUntil([this] { return session_.inFlight() == 0; }));
    updater().choose(Choice::Cancel);
    offer({});
    updater().checkForUpdates();
    EXPECT_TRUE(shows("no update"));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "checking", "no update"));
    EXPECT_THAT(observer_.told, ElementsAre("checked"));
}

TEST_F(AppcastUpdaterInterruptionTest, ADownloadCanBeCancelledBeforeItBegins) {
    offer({item("2.0")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    updater().choose(Choice::Install);
    EXPECT_EQ(presenter_.shown().back(), "download");
    updater().choose(Choice::Cancel);
    updater_.reset();
    processEvents();
    EXPECT_EQ(requests(), 1U);
}

TEST_F(AppcastUpdaterInterruptionTest, ADownloadIsShownAndCanBeCancelled) {
    offer({item("2.0")});
    updater().checkForUpdates();
    ASSERT_TRUE(shows("update 2.0 in focus"));
    session_.enqueue(FakeURLSession::Answer());
    updater().choose(Choice::Install);
    EXPECT_EQ(presenter_.download().receivedBytes, 0U);
    EXPECT_EQ(presenter_.download().expectedBytes, 3U);
    ASSERT_TRUE(runUntil([this] { return requests() == 2; }));
    ASSERT_TRUE(session_.requests().back().receiver("ne"));
    pass(UpdateDownloader::progressInterval);
    EXPECT_EQ(presenter_.download().receivedBytes, 2U);
    updater().choose(Choice::Cancel);
    processEvents();
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 in focus", "download"));
    EXPECT_EQ(session_.inFlight(), 0U);
    EXPECT_EQ(content(place_), "old");
}

TEST_F(AppcastUpdaterInterruptionTest, AVerifiedUpdateCanStillBeDeclined) {
    offer({item("2.0")});
    presenter_.onOffer = [this] {
        updater_->choose(Choice::Install);
    };
    for (const Choice choice : {Choice::Later, Choice::Skip}) {
        updater().checkForUpdates();
        ASSERT_TRUE(shows("ready 2.0"));
        updater().choose(choice);
        EXPECT_EQ(content(place_), "old");
        EXPECT_TRUE(waitUntil([this] { return leftovers().empty(); }));
    }
}

TEST_F(AppcastUpdaterInterruptionTest, AnUnexpectedAnswerDoesNothing) {
    updater().choose(Choice::Install);
    updater().noteUserAttention();
    updater().choose(Choice::Cancel);
    EXPECT_THAT(observer_.told, IsEmpty());
    EXPECT_THAT(presenter_.shown(), IsEmpty());
}

TEST_F(AppcastUpdaterInterruptionTest, AfterStoppingNothingIsCalled) {
    offer({item("2.0")});
    updater().checkForUpdates();
    updater().stop();
    processEvents();
    pass(3 * day);
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking"));
    EXPECT_THAT(observer_.told, IsEmpty());
    EXPECT_EQ(session_.inFlight(), 0U);

    updater().start({feedURL(), key_}, observer_, presenter_);
    pass(Seconds(0));
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 gently"));
}

TEST_F(AppcastUpdaterInterruptionTest, TheObserverCanStopTheUpdater) {
    offer({item("2.0")});
    observer_.onCheck = [this] {
        updater_->stop();
    };
    updater();
    pass(Seconds(0));
    EXPECT_THAT(observer_.told, ElementsAre("checked"));
    EXPECT_THAT(presenter_.shown(), IsEmpty());
}

TEST_F(AppcastUpdaterInterruptionTest, ItCanBeDestroyedAtAnyStep) {
    const std::string update(1'000'000, 'x');
    pages_[updateURL()] = update;
    offer({item("2.0", update)});
    for (const char* last :
         {"checking", "update 2.0 in focus", "download", "verification", "ready 2.0"}) {
        presenter_.onOffer = [this, last = std::string(last)] {
            if (!last.starts_with("update")) {
                updater_->choose(Choice::Install);
            }
        };
        updater().checkForUpdates();
        // The updater may already be one step further.
        ASSERT_TRUE(runUntil([&] {
            return testing::Value(presenter_.shown(), testing::Contains(std::string(last)));
        }));
        const std::vector<std::string> shown = presenter_.shown();
        updater_.reset();
        processEvents();
        EXPECT_EQ(presenter_.shown(), shown);
        EXPECT_EQ(content(place_), "old");
        EXPECT_THAT(leftovers(), IsEmpty());
        presenter_.clear();
    }
}

} // namespace orvel::test
