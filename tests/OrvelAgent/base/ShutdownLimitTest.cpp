// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ShutdownLimit.h"

#include "OrvelAgent/base/Worker.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace orvel {

namespace {

using namespace std::chrono_literals;

/// Stops a worker whose job does not end.
void stopHangingWorker() {
    ShutdownLimit limit([] { std::fputs("removed", stderr); });
    Worker worker;
    const auto hanging = worker.run([] {
        for (;;) {
            pause();
        }
    });
    limit.start(50ms, 7);
    worker.stop();
}

/// Prints whether the removal has more than 100 ms, for a large file on a slow disk.
void measureTimeForRemoval() {
    constexpr auto limitTime = 400ms;
    const auto end = std::chrono::steady_clock::now() + limitTime;
    ShutdownLimit limit([end] {
        const bool isEnough = end - std::chrono::steady_clock::now() > 100ms;
        std::fputs(isEnough ? "enough" : "short", stderr);
    });
    limit.start(limitTime);
    for (;;) {
        pause();
    }
}

/// Ends the process with a signal if it takes too long.
void hangInTheRemoval() {
    alarm(20);
    ShutdownLimit limit([] {
        for (;;) {
            pause();
        }
    });
    limit.start(50ms);
    for (;;) {
        pause();
    }
}

} // namespace

TEST(ShutdownLimitDeathTest, EndsTheProcessAlthoughAWorkerHangs) {
    EXPECT_EXIT(stopHangingWorker(), testing::ExitedWithCode(7), "removed");
}

TEST(ShutdownLimitDeathTest, GivesTheRemovalTimeForALargeFile) {
    EXPECT_EXIT(measureTimeForRemoval(), testing::ExitedWithCode(0), "enough");
}

TEST(ShutdownLimitDeathTest, EndsTheProcessAlthoughTheRemovalHangs) {
    EXPECT_EXIT(hangInTheRemoval(), testing::ExitedWithCode(0), "");
}

TEST(ShutdownLimitTest, DoesNothingWhenTheProcessEndsInTime) {
    bool isRemoved = false;
    {
        ShutdownLimit limit([&isRemoved] { isRemoved = true; });
        limit.start(24h);
    }
    {
        const ShutdownLimit neverStarted([&isRemoved] { isRemoved = true; });
    }
    EXPECT_FALSE(isRemoved);
}

} // namespace orvel
