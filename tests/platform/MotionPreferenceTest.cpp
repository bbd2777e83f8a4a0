// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every motion preference: the fake and this system's.
#include "platform/MotionPreference.h"

#include "tests/platform/RealMotionPreference.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeMotionPreference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace orvel {

namespace {

using test::waitUntil;

class FakeSubject final : public test::MotionPreferenceSubject {
public:
    MotionPreference& preference() override { return *preference_; }
    void destroyPreference() override { preference_.reset(); }
    void setReducesMotion(bool reduces) override { preference_->setReducesMotion(reduces); }

private:
    std::unique_ptr<test::FakeMotionPreference> preference_ =
        std::make_unique<test::FakeMotionPreference>();
};

struct Kind {
    const char* name;
    std::unique_ptr<test::MotionPreferenceSubject> (*make)();
};

class MotionPreferenceTest : public testing::TestWithParam<Kind> {
protected:
    MotionPreference& preference() { return subject_->preference(); }

    std::unique_ptr<test::MotionPreferenceSubject> subject_ = GetParam().make();
};

} // namespace

TEST_P(MotionPreferenceTest, ASubscriptionMayOutliveIt) {
    auto motion = preference().onChange([] {});
    subject_->destroyPreference();
    motion.reset();
}

TEST_P(MotionPreferenceTest, FollowsTheSetting) {
    EXPECT_FALSE(preference().shouldReduceMotion());
    std::vector<bool> seen;
    const auto subscription =
        preference().onChange([&] { seen.push_back(preference().shouldReduceMotion()); });
    subject_->setReducesMotion(true);
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 1; }));
    subject_->setReducesMotion(false);
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_THAT(seen, testing::ElementsAre(true, false));
}

INSTANTIATE_TEST_SUITE_P(
    Implementations,
    MotionPreferenceTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<test::MotionPreferenceSubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{"Real", test::makeRealMotionPreference}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
