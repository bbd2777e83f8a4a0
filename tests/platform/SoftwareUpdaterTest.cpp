// SPDX-License-Identifier: Apache-2.0
#include "platform/SoftwareUpdater.h"

#include "platform/linux/update/AppcastUpdater.h"
#include "tests/support/AppcastBuilder.h"
#include "tests/support/RunTask.h"
#include "tests/support/UpdateSigner.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeSoftwareUpdater.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/fakes/RecordingUpdateObserver.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using testing::ElementsAre;
using testing::IsEmpty;

struct FakeFixture {
    void offer(const std::optional<std::string>& version) {
        updater.setOffer(
            version ? std::optional(SoftwareUpdate{*version, *version, "", 3}) : std::nullopt);
    }
    void passADay() { updater.passADay(); }
    static void finishChecks(const RecordingUpdateObserver&) { processEvents(); }
    void letSavingFail(bool fails) {
        updater.setSaveFailure(
            fails ? std::optional<std::string>("Could not write the settings.") : std::nullopt);
    }

    SoftwareUpdater::Feed feed{"https://h/feed.xml", "key"};
    FakeSoftwareUpdater updater;
};

struct AppcastFixture {
    AppcastFixture() {
        session.setHandler([this](const URLRequest&) { return URLResponse{200, text}; });
        // Delays the first scheduled check by a day.
        defaults.set(UpdateSchedule::lastCheckKey, clock.now());
    }

    void offer(const std::optional<std::string>& version) {
        AppcastBuilder builder;
        if (version) {
            builder.add(AppcastBuilder::Item(*version, "https://h/update", "new", signer)
                            .with("type", "application/vnd.debian.binary-package"));
        }
        text = builder.text();
    }
    void passADay() { clock.advance(UpdateSchedule::checkInterval); }
    /// Each feed that was requested is read by another thread.
    void finishChecks(const RecordingUpdateObserver& observer) {
        processEvents();
        EXPECT_TRUE(waitUntil([&] { return observer.checks == session.requests().size(); }));
    }
    void letSavingFail(bool fails) { defaults.setFailsWrites(fails); }

    UpdateSigner signer;
    std::string text = AppcastBuilder().text();
    FakeURLSession session;
    ManualClock clock;
    InMemoryUserDefaults defaults;
    RecordingLogStore logStore;
    SoftwareUpdater::Feed feed{"https://h/feed.xml", signer.publicKey()};
    AppcastUpdater updater{
        session,
        clock,
        defaults,
        logStore,
        {*UpdateVersion::parse("1.0"),
         UpdateInstallation({}, "/nonexistent"),
         "x86_64",
         *UpdateVersion::parse("2.36")}};
};

template <typename Fixture>
class SoftwareUpdaterTest : public testing::Test {
protected:
    SoftwareUpdaterTest() { updater().start(fixture_.feed, observer_, presenter_); }
    ~SoftwareUpdaterTest() override { updater().stop(); }

    SoftwareUpdater& updater() { return fixture_.updater; }
    void passADay() {
        fixture_.passADay();
        fixture_.finishChecks(observer_);
    }
    void checkForUpdates() {
        updater().checkForUpdates();
        fixture_.finishChecks(observer_);
    }

    RecordingUpdateObserver observer_;
    RecordingUpdatePresenter presenter_;
    Fixture fixture_;
};

using Fixtures = testing::Types<AppcastFixture, FakeFixture>;
TYPED_TEST_SUITE(SoftwareUpdaterTest, Fixtures);

} // namespace

TYPED_TEST(SoftwareUpdaterTest, ARequestedCheckThatFindsNothingSaysSo) {
    this->checkForUpdates();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("checking", "no update"));
    EXPECT_THAT(this->observer_.told, ElementsAre("checked"));
    EXPECT_TRUE(this->updater().lastUpdateCheckDate());
}

TYPED_TEST(SoftwareUpdaterTest, AScheduledCheckThatFindsNothingIsSilent) {
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), IsEmpty());
    EXPECT_THAT(this->observer_.told, ElementsAre("checked"));
}

TYPED_TEST(SoftwareUpdaterTest, AScheduledOfferIsGentleUntilTheUserAsks) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->checkForUpdates();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
    EXPECT_THAT(this->observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
}

TYPED_TEST(SoftwareUpdaterTest, ARequestedOfferTakesTheFocus) {
    this->fixture_.offer("2.0");
    this->checkForUpdates();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
    EXPECT_THAT(this->observer_.told, ElementsAre("checked", "2.0 asked for"));
}

TYPED_TEST(SoftwareUpdaterTest, ADeferredUpdateIsOfferedAgain) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->updater().choose(Choice::Later);
    this->updater().choose(Choice::Later);
    EXPECT_THAT(this->observer_.told, ElementsAre("checked", "2.0 on schedule", "2.0 seen"));
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.0 gently"));
}

TYPED_TEST(SoftwareUpdaterTest, ASkippedUpdateIsOfferedOnlyOnRequest) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->updater().choose(Choice::Skip);
    this->presenter_.clear();
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), IsEmpty());
    this->checkForUpdates();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
}

TYPED_TEST(SoftwareUpdaterTest, ReportsThatAnUpdateWasSeen) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->updater().noteUserAttention();
    EXPECT_EQ(this->observer_.told.back(), "2.0 seen");
}

TYPED_TEST(SoftwareUpdaterTest, WithoutAutomaticChecksOnlyARequestChecks) {
    EXPECT_TRUE(this->updater().automaticallyChecksForUpdates());
    this->updater().setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(this->updater().automaticallyChecksForUpdates());
    this->passADay();
    EXPECT_THAT(this->observer_.told, IsEmpty());
    this->checkForUpdates();
    EXPECT_THAT(this->observer_.told, ElementsAre("checked"));
}

TYPED_TEST(SoftwareUpdaterTest, TellsTheObserverWhetherAChoiceWasSaved) {
    const auto saves = [this](std::size_t count) {
        return waitUntil([this, count] { return this->observer_.saved.size() == count; });
    };
    this->fixture_.letSavingFail(true);
    this->updater().setAutomaticallyChecksForUpdates(false);
    ASSERT_TRUE(saves(1));
    EXPECT_THAT(this->observer_.saved.back(), testing::StartsWith("Could not write the settings"));
    EXPECT_FALSE(this->updater().automaticallyChecksForUpdates());

    this->fixture_.letSavingFail(false);
    this->updater().setAutomaticallyChecksForUpdates(true);
    ASSERT_TRUE(saves(2));
    EXPECT_EQ(this->observer_.saved.back(), "saved");

    this->fixture_.offer("2.0");
    this->passADay();
    this->fixture_.letSavingFail(true);
    this->updater().choose(Choice::Skip);
    ASSERT_TRUE(saves(3));
    EXPECT_THAT(this->observer_.saved.back(), testing::StartsWith("Could not write the settings"));
}

TYPED_TEST(SoftwareUpdaterTest, AGentleOfferIsReplacedByANewerOne) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("update 2.0 gently"));
    this->fixture_.offer("2.1");
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("update 2.0 gently", "update 2.1 gently"));
    this->observer_.told.clear();
    this->updater().choose(Choice::Later);
    EXPECT_THAT(this->observer_.told, ElementsAre("2.1 seen"));
}

TYPED_TEST(SoftwareUpdaterTest, ASeenOfferIsNotReplaced) {
    this->fixture_.offer("2.0");
    this->passADay();
    this->updater().noteUserAttention();
    this->fixture_.offer("2.1");
    this->passADay();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("update 2.0 gently"));
}

TYPED_TEST(SoftwareUpdaterTest, DoesNothingWhileStopped) {
    this->fixture_.offer("2.0");
    this->updater().stop();
    this->passADay();
    this->updater().choose(Choice::Install);
    this->updater().noteUserAttention();
    this->updater().choose(Choice::Cancel);
    EXPECT_THAT(this->presenter_.shown(), IsEmpty());
    EXPECT_THAT(this->observer_.told, IsEmpty());
    this->updater().start(this->fixture_.feed, this->observer_, this->presenter_);
    this->checkForUpdates();
    EXPECT_THAT(this->presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
}

} // namespace orvel::test
