// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/AttentionFlash.h"

#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

namespace orvel::test {

namespace {

class AttentionFlashTest : public AppModelFixture {};

} // namespace

TEST_F(AttentionFlashTest, FlashingWakesUpLessThanOnceASecond) {
    startSignedOut();
    EXPECT_LT(wakeUpsInAnHour(), 3600);
}

TEST_F(AttentionFlashTest, WithReducedMotionItWakesUpLessThanOnceInTenSeconds) {
    with_.motionPreference.setReducesMotion(true);
    startSignedOut();
    EXPECT_LT(wakeUpsInAnHour(), 360);
}

TEST_F(AttentionFlashTest, AttentionFlashesForLessThanASecondEveryThree) {
    startSignedOut();
    for (int cycle = 0; cycle < 3; ++cycle) {
        EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent");
        const int flashChanges = flashChanges_;
        const int changes = changes_;
        with_.clock.advance(AttentionFlash::brandDuration);
        EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
        EXPECT_EQ(flashChanges_, flashChanges + 1);
        with_.clock.advance(AttentionFlash::alertDuration);
        EXPECT_EQ(flashChanges_, flashChanges + 2);
        EXPECT_EQ(changes_, changes) << "the flash emits only its own signal";
    }
}

TEST_F(AttentionFlashTest, StoppingTheFlashShowsTheBrandImage) {
    startSignedOut();
    with_.clock.advance(AttentionFlash::brandDuration);
    ASSERT_TRUE(model_->attentionFlashOn());
    model_->collector().setPaused(true);
    EXPECT_FALSE(model_->attentionFlashOn());
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_FALSE(model_->attentionFlashOn());

    // The next flash starts with the brand image.
    model_->collector().setPaused(false);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    model_->syncAttentionFlash();
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    with_.letTheUserSignIn();
    runTask(model_->auth().signIn());
    EXPECT_FALSE(model_->attentionFlashOn());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
}

TEST_F(AttentionFlashTest, WithReducedMotionTheIconIsSteady) {
    startSignedOut();
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
    with_.motionPreference.setReducesMotion(true);
    EXPECT_FALSE(model_->attentionFlashOn());
    const int changes = changes_;
    const int flashChanges = flashChanges_;
    for (const tavrin::Seconds duration :
         {AttentionFlash::brandDuration, AttentionFlash::alertDuration}) {
        EXPECT_EQ(model_->statusIcon(), StatusIcon::BrandAlert);
        EXPECT_EQ(model_->statusAccessibilityLabel(), "Orvel Agent: Sign in to start collecting.");
        with_.clock.advance(duration);
    }
    EXPECT_EQ(changes_, changes);
    EXPECT_EQ(flashChanges_, flashChanges);

    with_.motionPreference.setReducesMotion(false);
    EXPECT_EQ(changes_, changes + 1);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Attention);
}

} // namespace orvel::test
