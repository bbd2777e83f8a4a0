// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/PortalMotionPreference.h"

#include "platform/linux/support/SessionBus.h"
#include "tests/platform/linux/BusDaemon.h"
#include "tests/platform/linux/desktop/SettingsPortal.h"
#include "tests/platform/linux/keychain/SilentBus.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>

namespace orvel::test {

namespace {

constexpr auto busVariable = "DBUS_SESSION_BUS_ADDRESS";

class PortalMotionPreferenceTest : public testing::Test {
protected:
    void make() {
        preference_ = std::make_unique<PortalMotionPreference>(clock_, [] { return nullptr; });
        subscription_ = preference_->onChange([this] { ++changes_; });
    }

    /// Waits until that many of the portal's answers have arrived.
    [[nodiscard]] bool waitForReplies(int count) {
        return waitUntil([&] { return portal_.readings() >= count; }) &&
               waitUntil([this, rounds = 0]() mutable { return ++rounds > 5 || changes_ > 0; });
    }

    ManualClock clock_;
    int changes_ = 0;
    SettingsPortal portal_;
    std::unique_ptr<MotionPreference> preference_;
    std::unique_ptr<Subscription> subscription_;
};

} // namespace

TEST_F(PortalMotionPreferenceTest, NothingIsReducedUntilThePortalHasAnswered) {
    portal_.setReducedMotion(1);
    make();
    EXPECT_FALSE(preference_->shouldReduceMotion());
    ASSERT_TRUE(waitUntil([this] { return changes_ > 0; }));
    EXPECT_TRUE(preference_->shouldReduceMotion());
    EXPECT_EQ(changes_, 1);
}

TEST_F(PortalMotionPreferenceTest, FollowsTheChanges) {
    portal_.setReducedMotion(0);
    make();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_FALSE(preference_->shouldReduceMotion());
    portal_.setReducedMotion(1);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(preference_->shouldReduceMotion());
    portal_.setReducedMotion(0);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(preference_->shouldReduceMotion());
}

TEST_F(PortalMotionPreferenceTest, UsesTheAnimationsSettingIfThereIsNoOther) {
    portal_.setAnimations(false);
    make();
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(preference_->shouldReduceMotion());
    portal_.setAnimations(true);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(preference_->shouldReduceMotion());
}

TEST_F(PortalMotionPreferenceTest, TheAppearanceTakesPrecedenceOverTheAnimations) {
    portal_.setReducedMotion(0);
    portal_.setAnimations(false);
    make();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_FALSE(preference_->shouldReduceMotion());
    EXPECT_EQ(changes_, 0);
}

TEST_F(PortalMotionPreferenceTest, IgnoresAnAnswerOfAnotherType) {
    portal_.set(
        QStringLiteral("org.freedesktop.appearance"),
        QStringLiteral("reduced-motion"),
        QStringLiteral("a great deal"));
    make();
    ASSERT_TRUE(waitForReplies(1));
    EXPECT_FALSE(preference_->shouldReduceMotion());
}

TEST_F(PortalMotionPreferenceTest, OtherSettingsAreNotReadAgain) {
    make();
    ASSERT_TRUE(waitForReplies(1));
    portal_.set(QStringLiteral("org.example"), QStringLiteral("key"), 1);
    portal_.setReducedMotion(1);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_EQ(portal_.readings(), 2);
}

TEST_F(PortalMotionPreferenceTest, FollowsAPortalThatStartsLater) {
    const BusDaemon daemon;
    const Program probe({{DESKTOP_PROBE, "motion"}, {{busVariable, daemon.address()}}});
    ASSERT_TRUE(waitUntil([&] { return probe.output() == "0\n"; }));
    SettingsPortal portal(daemon.address());
    EXPECT_TRUE(waitUntil([&] {
        // Repeat until the probe listens.
        portal.setReducedMotion(1);
        return probe.output() == "0\n1\n";
    }));
}

TEST_F(PortalMotionPreferenceTest, AProcessWithoutCoreDumpsIsAnswered) {
    rlimit limit{};
    getrlimit(RLIMIT_CORE, &limit);
    if (limit.rlim_max == 0) {
        GTEST_SKIP() << "The session's limit for core dumps is 0, which only root may raise.";
    }
    portal_.setReducedMotion(1);
    const Program probe({{DESKTOP_PROBE, "motion", "no-core-dumps"}, {}});
    EXPECT_TRUE(waitUntil([&] { return probe.output() == "0\n1\n"; }));
    EXPECT_EQ(portal_.refusals(), 0);
}

TEST_F(PortalMotionPreferenceTest, ThePortalRefusesAProcessThatCannotBeExamined) {
    portal_.setReducedMotion(1);
    const Program probe({{DESKTOP_PROBE, "motion", "not-dumpable"}, {}});
    EXPECT_TRUE(waitUntil([this] { return portal_.refusals() == 1; }));
    EXPECT_EQ(probe.output(), "0\n");
}

TEST_F(PortalMotionPreferenceTest, ASilentBusDoesNotBlock) {
    const SilentBus silent;
    const Program probe({{DESKTOP_PROBE, "motion"}, {{busVariable, silent.address()}}});
    EXPECT_TRUE(waitUntil([&] { return probe.output() == "0\n"; }));
}

} // namespace orvel::test
