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
    limit.start(50ms);
    worker.stop();
}

} // namespace

TEST(ShutdownLimitDeathTest, EndsTheProcessAlthoughAWorkerHangs) {
    EXPECT_EXIT(stopHangingWorker(), testing::ExitedWithCode(0), "removed");
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
