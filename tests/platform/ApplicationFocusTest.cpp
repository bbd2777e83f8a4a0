// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every application focus: the fake and this system's.
#include "platform/ApplicationFocus.h"

#include "tests/platform/RealApplicationFocus.h"
#include "tests/support/fakes/FakeApplicationFocus.h"

#include <gtest/gtest.h>

#include <memory>

namespace orvel {

namespace {

struct Kind {
    const char* name;
    std::unique_ptr<ApplicationFocus> (*make)();
};

class ApplicationFocusTest : public testing::TestWithParam<Kind> {
protected:
    std::unique_ptr<ApplicationFocus> focus_ = GetParam().make();
};

} // namespace

TEST_P(ApplicationFocusTest, KeepsTheActivationPolicy) {
    EXPECT_EQ(focus_->activationPolicy(), ApplicationFocus::ActivationPolicy::Accessory);
    focus_->setActivationPolicy(ApplicationFocus::ActivationPolicy::Regular);
    EXPECT_EQ(focus_->activationPolicy(), ApplicationFocus::ActivationPolicy::Regular);
}

INSTANTIATE_TEST_SUITE_P(
    Implementations,
    ApplicationFocusTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<ApplicationFocus> {
                return std::make_unique<test::FakeApplicationFocus>();
            }},
        Kind{"Real", test::makeRealApplicationFocus}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
