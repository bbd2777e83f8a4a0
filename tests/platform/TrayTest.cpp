// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every tray: the fake and this system's.
#include "platform/Tray.h"

#include "tests/platform/RealTray.h"
#include "tests/support/fakes/FakeTray.h"

#include <gtest/gtest.h>

#include <memory>

namespace orvel {

namespace {

struct Kind {
    const char* name;
    std::unique_ptr<Tray> (*make)();
};

class TrayTest : public testing::TestWithParam<Kind> {
protected:
    std::unique_ptr<Tray> tray_ = GetParam().make();
};

} // namespace

TEST_P(TrayTest, ASubscriptionMayOutliveIt) {
    auto change = tray_->onChange([] {});
    tray_.reset();
    change.reset();
}

INSTANTIATE_TEST_SUITE_P(
    Implementations,
    TrayTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<Tray> {
                return std::make_unique<test::FakeTray>();
            }},
        Kind{"Real", test::makeRealTray}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
