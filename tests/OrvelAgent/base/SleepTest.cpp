// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Sleep.h"

#include "tests/support/RunTask.h"
#include "tests/support/fakes/ManualClock.h"

#include <gtest/gtest.h>

namespace orvel {

using test::ManualClock;
using test::runTask;

TEST(SleepTest, EndsWhenTheTimeIsOver) {
    ManualClock clock;
    auto sleep = sleepFor(&clock, tavrin::Seconds(10), {});
    clock.advance(tavrin::Seconds(9.5));
    EXPECT_FALSE(sleep.isReady());
    clock.advance(tavrin::Seconds(0.5));
    EXPECT_TRUE(sleep.isReady());
}

TEST(SleepTest, CancellingEndsItAtOnceAndStopsTheTimer) {
    ManualClock clock;
    tavrin::CancellationSource source;
    auto sleep = sleepFor(&clock, tavrin::Seconds(10), source.token());
    source.cancel();
    EXPECT_FALSE(clock.untilNextTimer());
    EXPECT_THROW(runTask(std::move(sleep)), tavrin::TaskCancelled);
}

TEST(SleepTest, ACancelledTokenStartsNoTimer) {
    ManualClock clock;
    tavrin::CancellationSource source;
    source.cancel();
    EXPECT_THROW(
        runTask(sleepFor(&clock, tavrin::Seconds(10), source.token())), tavrin::TaskCancelled);
    EXPECT_FALSE(clock.untilNextTimer());
}

TEST(SleepTest, CancellingAfterTheEndDoesNothing) {
    ManualClock clock;
    tavrin::CancellationSource source;
    auto sleep = sleepFor(&clock, tavrin::Seconds(1), source.token());
    clock.advance(tavrin::Seconds(1));
    source.cancel();
    EXPECT_NO_THROW(runTask(std::move(sleep)));
}

} // namespace orvel
