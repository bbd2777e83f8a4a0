// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/SignalWatch.h"

#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>

namespace orvel {

namespace {

using test::processEvents;
using namespace std::chrono_literals;

class SignalWatchTest : public testing::TestWithParam<int> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    , SignalWatchTest, testing::Values(SIGHUP, SIGINT, SIGTERM), [](const auto& number) {
        return std::string(sigabbrev_np(number.param));
    });

TEST_P(SignalWatchTest, ASignalCausesACallFromTheEventLoop) {
    int calls = 0;
    const SignalWatch watch([&calls] { ++calls; });
    EXPECT_EQ(watch.received(), std::nullopt);
    raise(GetParam());
    EXPECT_EQ(calls, 0);
    processEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(watch.received(), GetParam());
}

TEST_P(SignalWatchTest, FurtherSignalsAreIgnored) {
    int calls = 0;
    const SignalWatch watch([&calls] { ++calls; });
    raise(GetParam());
    raise(SIGTERM);
    raise(SIGHUP);
    processEvents();
    raise(GetParam());
    processEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(watch.received(), GetParam());
}

TEST_P(SignalWatchTest, ASignalIgnoredAtTheStartStaysIgnored) {
    const auto former = std::signal(GetParam(), SIG_IGN);
    int calls = 0;
    {
        const SignalWatch watch([&calls] { ++calls; });
        raise(GetParam());
        processEvents();
    }
    EXPECT_EQ(calls, 0);
    std::signal(GetParam(), former);
}

TEST_P(SignalWatchTest, AFurtherSignalAfterTheTimeoutEndsAHangingProgram) {
    EXPECT_EXIT(
        {
            const SignalWatch watch([] {}, 0s);
            raise(SIGINT);
            raise(GetParam());
            std::_Exit(0);
        },
        testing::KilledBySignal(GetParam()),
        "");
}

} // namespace orvel
