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
