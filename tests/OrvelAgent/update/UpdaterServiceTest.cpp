// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/update/UpdaterService.h"

#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeSoftwareUpdater.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <QObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace orvel {

namespace {

using test::FakeBundle;
using test::FakeSoftwareUpdater;
using test::RecordingUpdatePresenter;
using testing::ElementsAre;

constexpr const char* keyError =
    "No update signing key is configured in this build, so updates cannot be verified. This build "
    "will not self-update.";
constexpr const char* feedError =
    "The update feed URL is missing or not HTTPS. This build will not self-update.";

const SoftwareUpdate newer{"2.0", "2.0", "Better.", 1000};

class UpdaterServiceTest : public testing::Test {
protected:
    UpdaterServiceTest() {
        bundle_.setInfo("SUPublicEDKey", "key");
        bundle_.setInfo("SUFeedURL", "https://updates.test.example/feed.xml");
    }

    UpdaterService& service() {
        if (!service_) {
            service_ = std::make_unique<UpdaterService>(bundle_, updater_, presenter_);
            QObject::connect(
                service_.get(), &UpdaterService::changed, service_.get(), [this] { ++changes_; });
        }
        return *service_;
    }

    FakeBundle bundle_;
    FakeSoftwareUpdater updater_;
    RecordingUpdatePresenter presenter_;
    std::unique_ptr<UpdaterService> service_;
    int changes_ = 0;
};

} // namespace

TEST_F(UpdaterServiceTest, StartsTheUpdaterWithTheBuildsFeedAndKey) {
    EXPECT_EQ(service().controller(), &updater_);
    EXPECT_EQ(service().configurationError(), std::nullopt);
    EXPECT_EQ(service().lastCheck(), std::nullopt);
    EXPECT_FALSE(service().updateAwaitingAttention());
    ASSERT_TRUE(updater_.feed());
    EXPECT_EQ(updater_.feed()->url, "https://updates.test.example/feed.xml");
    EXPECT_EQ(updater_.feed()->publicKey, "key");
}

TEST_F(UpdaterServiceTest, DoesNotStartTheUpdaterWithoutAKey) {
    FakeBundle bare;
    bare.setInfo("SUFeedURL", "https://updates.test.example/feed.xml");
    FakeBundle blank;
    blank.setInfo("SUFeedURL", "https://updates.test.example/feed.xml");
    blank.setInfo("SUPublicEDKey", "");
    for (const FakeBundle* bundle : {&bare, &blank}) {
        const UpdaterService service(*bundle, updater_, presenter_);
        EXPECT_EQ(service.configurationError(), keyError);
        EXPECT_EQ(service.controller(), nullptr);
        EXPECT_FALSE(updater_.feed());
    }
}

TEST_F(UpdaterServiceTest, TheKeyIsCheckedBeforeTheFeed) {
    FakeBundle bundle;
    bundle.setInfo("SUFeedURL", "http://updates.test.example/feed.xml");
    EXPECT_EQ(UpdaterService(bundle, updater_, presenter_).configurationError(), keyError);
    EXPECT_EQ(UpdaterService(FakeBundle(), updater_, presenter_).configurationError(), keyError);
}

TEST_F(UpdaterServiceTest, DoesNotStartTheUpdaterWithoutAnHTTPSFeed) {
    for (const char* url :
         {"",
          "http://updates.test.example/feed.xml",
          "HTTPS://updates.test.example/feed.xml",
          "httpsx://updates.test.example/feed.xml",
          "file:///feed.xml",
          "updates.test.example/feed.xml",
          "//updates.test.example/feed.xml",
          "https",
          " https://updates.test.example/feed.xml",
          "https://updates test/feed.xml",
          "https://updates.test.example:port/feed.xml",
          "$(UPDATE_FEED_URL)"}) {
        bundle_.setInfo("SUFeedURL", url);
        const UpdaterService service(bundle_, updater_, presenter_);
        EXPECT_EQ(service.configurationError(), feedError) << url;
        EXPECT_EQ(service.controller(), nullptr) << url;
        EXPECT_FALSE(updater_.feed()) << url;
    }
    FakeBundle without;
    without.setInfo("SUPublicEDKey", "key");
    EXPECT_EQ(UpdaterService(without, updater_, presenter_).configurationError(), feedError);
}

TEST_F(UpdaterServiceTest, AScheduledUpdateAwaitsAttentionUntilItIsSeen) {
    service();
    updater_.setOffer(newer);
    updater_.passADay();
    EXPECT_TRUE(service().updateAwaitingAttention());
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently"));

    changes_ = 0;
    updater_.checkForUpdates();
    EXPECT_FALSE(service().updateAwaitingAttention());
    EXPECT_EQ(changes_, 1);
    EXPECT_THAT(presenter_.shown(), ElementsAre("update 2.0 gently", "in focus"));
}

TEST_F(UpdaterServiceTest, ARequestedUpdateDoesNotChangeAttention) {
    service();
    updater_.setOffer(newer);
    updater_.checkForUpdates();
    EXPECT_FALSE(service().updateAwaitingAttention());
    EXPECT_THAT(presenter_.shown(), ElementsAre("checking", "update 2.0 in focus"));
}

TEST_F(UpdaterServiceTest, ADecisionClearsAttention) {
    for (const auto choice :
         {SoftwareUpdater::Choice::Install,
          SoftwareUpdater::Choice::Later,
          SoftwareUpdater::Choice::Skip}) {
        service();
        updater_.setOffer(newer);
        updater_.passADay();
        ASSERT_TRUE(service().updateAwaitingAttention());
        updater_.choose(choice);
        EXPECT_FALSE(service().updateAwaitingAttention());
    }
}

TEST_F(UpdaterServiceTest, PublishesTheTimeOfTheLastCheck) {
    const tavrin::Date time(tavrin::Seconds(1'710'003'942));
    service();
    updater_.setTime(time);
    updater_.passADay();
    EXPECT_EQ(service().lastCheck(), time);
    EXPECT_EQ(changes_, 1);
}

TEST_F(UpdaterServiceTest, PublishesThatAChoiceCouldNotBeSaved) {
    EXPECT_EQ(service().settingsError(), std::nullopt);
    updater_.setSaveFailure("The disk is full.");
    updater_.setAutomaticallyChecksForUpdates(false);
    updater_.setAutomaticallyChecksForUpdates(true);
    EXPECT_EQ(service().settingsError(), "The disk is full.");
    EXPECT_EQ(changes_, 1);
    updater_.setSaveFailure(std::nullopt);
    updater_.setAutomaticallyChecksForUpdates(false);
    EXPECT_EQ(service().settingsError(), std::nullopt);
    EXPECT_EQ(changes_, 2);
}

TEST_F(UpdaterServiceTest, EmitsOneSignalPerChange) {
    service();
    updater_.setOffer(newer);
    updater_.passADay();
    changes_ = 0;
    updater_.noteUserAttention();
    updater_.noteUserAttention();
    EXPECT_EQ(changes_, 1);
}

TEST_F(UpdaterServiceTest, DestroyingTheServiceStopsTheUpdater) {
    service();
    service_.reset();
    EXPECT_FALSE(updater_.feed());
}

} // namespace orvel
