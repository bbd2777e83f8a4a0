// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/CollectionStatus.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace orvel::test {

namespace {

using namespace std::chrono_literals;

class CollectionStatusTest : public AppModelFixture {};

} // namespace

TEST_F(CollectionStatusTest, ReportsSignedOutBeforeMissingFullDiskAccess) {
    options_.sourcePath = (directory_ / "missing.db").string();
    startSignedOut();
    EXPECT_TRUE(model_->needsAttention());
    EXPECT_EQ(model_->blockedReason(), "Sign in to start collecting.");
}

TEST_F(CollectionStatusTest, ShowsTheBrandImageWhenNothingIsWrong) {
    startSignedIn();
    EXPECT_FALSE(model_->needsAttention());
    EXPECT_EQ(model_->blockedReason(), std::nullopt);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent");
}

TEST_F(CollectionStatusTest, ShowsAScanEvenIfAttentionIsNeeded) {
    addMessages(1);
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    beginSignedIn();
    EXPECT_TRUE(waitForRequest(FakeService::ingestPath));
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Scanning);
    model_->auth().signOut();
    EXPECT_TRUE(model_->needsAttention());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Scanning);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: scanning");
    with_.clock.advance(1h);
    EXPECT_FALSE(model_->attentionFlashOn());
}

TEST_F(CollectionStatusTest, ShowsAPauseEvenIfAttentionIsNeeded) {
    startSignedOut();
    model_->collector().setPaused(true);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Paused);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: collection paused");
}

TEST_F(CollectionStatusTest, ShowsAWaitingUpdateWhenNothingElseIsWrong) {
    startSignedIn();
    SoftwareUpdate update;
    update.version = "2.0";
    with_.softwareUpdater.setOffer(update);
    with_.softwareUpdater.passADay();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::BrandAlert);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: an update is ready to install");
    model_->auth().signOut();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.motionPreference.setReducesMotion(true);
    EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
}

} // namespace orvel::test
