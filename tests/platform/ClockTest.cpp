// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every clock: the manual one and this system's.
#include "platform/Clock.h"

#include "tests/platform/RealClock.h"
#include "tests/support/fakes/ManualClock.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::Seconds;

/// A clock, and a function that lets time pass until a condition holds.
template <std::unique_ptr<Clock> (*make)()>
struct SystemFixture {
    std::unique_ptr<Clock> owned = make();
    Clock& clock = *owned;

    void waitFor(const std::function<bool()>& condition) {
        while (!condition()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }
};

struct ManualFixture {
    ManualClock clock;

    void waitFor(const std::function<bool()>& condition) {
        while (!condition()) {
            clock.advance(clock.untilNextTimer().value());
        }
    }
};

template <typename Fixture>
class ClockTest : public testing::Test {
protected:
    Clock& clock() { return fixture_.clock; }

    /// Waits until a new timer, started after all others, has called back.
    void waitForLaterTimer(Seconds delay) {
        bool isDone = false;
        const auto timer = clock().schedule(delay, [&isDone] { isDone = true; });
        fixture_.waitFor([&isDone] { return isDone; });
    }

    void waitFor(const std::function<bool()>& condition) { fixture_.waitFor(condition); }

private:
    Fixture fixture_;
};

using Fixtures =
    testing::Types<SystemFixture<makeRealClock>, SystemFixture<makeStarvedClock>, ManualFixture>;
TYPED_TEST_SUITE(ClockTest, Fixtures);

} // namespace

TYPED_TEST(ClockTest, CallsBackOnce) {
    int calls = 0;
    const auto timer = this->clock().schedule(Seconds(0.001), [&calls] { ++calls; });
    this->waitFor([&calls] { return calls > 0; });
    this->waitForLaterTimer(Seconds(0.002));
    EXPECT_EQ(calls, 1);
}

TYPED_TEST(ClockTest, NeverCallsBackBeforeSchedulingReturns) {
    for (const double delay : {0.0, -1.0, -std::numeric_limits<double>::infinity()}) {
        bool isCalled = false;
        const auto timer = this->clock().schedule(Seconds(delay), [&isCalled] { isCalled = true; });
        EXPECT_FALSE(isCalled) << delay;
        this->waitFor([&isCalled] { return isCalled; });
    }
}

TYPED_TEST(ClockTest, ADestroyedTimerNeverCallsBack) {
    bool isCalled = false;
    auto timer = this->clock().schedule(Seconds(0.001), [&isCalled] { isCalled = true; });
    timer.reset();
    this->waitForLaterTimer(Seconds(0.002));
    EXPECT_FALSE(isCalled);
}

TYPED_TEST(ClockTest, ACallbackMayDestroyItsOwnTimer) {
    std::unique_ptr<Clock::Timer> timer;
    bool isCalled = false;
    const auto witness = std::make_shared<int>(42);
    timer = this->clock().schedule(Seconds(0.001), [&timer, &isCalled, witness] {
        timer.reset();
        isCalled = *witness == 42;
    });
    this->waitFor([&timer] { return timer == nullptr; });
    EXPECT_TRUE(isCalled);
    EXPECT_EQ(witness.use_count(), 1);
}

TYPED_TEST(ClockTest, ACallbackMayStartTheNextTimer) {
    std::unique_ptr<Clock::Timer> second;
    bool isCalled = false;
    const auto first = this->clock().schedule(Seconds(0.001), [&] {
        second = this->clock().schedule(Seconds(0.001), [&isCalled] { isCalled = true; });
    });
    this->waitFor([&isCalled] { return isCalled; });
    EXPECT_NE(second, nullptr);
}

TYPED_TEST(ClockTest, TimersCallBackInTheOrderOfTheirTime) {
    std::vector<int> order;
    const auto late = this->clock().schedule(Seconds(0.050), [&order] { order.push_back(2); });
    const auto early = this->clock().schedule(Seconds(0.001), [&order] { order.push_back(1); });
    this->waitFor([&order] { return order.size() == 2; });
    EXPECT_EQ(order, (std::vector{1, 2}));
}

TYPED_TEST(ClockTest, NeverCallsBackEarly) {
    const Seconds start = this->clock().uptime();
    const Seconds delay(0.005);
    Seconds end{0};
    const auto timer =
        this->clock().schedule(delay, [this, &end] { end = this->clock().uptime(); });
    this->waitFor([&end] { return end != Seconds(0); });
    // Both readings are doubles: allow a nanosecond of rounding.
    EXPECT_GE(end - start, delay - Seconds(1e-9));
}

TYPED_TEST(ClockTest, AcceptsATimerFarInTheFuture) {
    bool isCalled = false;
    const auto timer = this->clock().schedule(Seconds(1e18), [&isCalled] { isCalled = true; });
    auto sooner = this->clock().schedule(Seconds(0.001), [] {});
    this->waitForLaterTimer(Seconds(0.002));
    EXPECT_FALSE(isCalled);
}

TEST(RealClockTest, TellsTheSystemsTimeOfDay) {
    const auto before = std::chrono::system_clock::now();
    const tavrin::Date now = makeRealClock()->now();
    const auto after = std::chrono::system_clock::now();
    // A double is precise to a fraction of a microsecond.
    EXPECT_GE(now, before - std::chrono::microseconds(1));
    EXPECT_LE(now, after + std::chrono::microseconds(1));
}

TEST(ManualClockTest, MovesBothReadingsTogether) {
    ManualClock clock;
    const tavrin::Date now = clock.now();
    const Seconds uptime = clock.uptime();
    clock.advance(Seconds(90));
    EXPECT_EQ(clock.now() - now, Seconds(90));
    EXPECT_EQ(clock.uptime() - uptime, Seconds(90));
}

TEST(ManualClockTest, CallsBackAtTheTimersOwnTime) {
    ManualClock clock;
    std::vector<double> times;
    const auto record = [&] {
        times.push_back(clock.uptime().count());
    };
    std::unique_ptr<Clock::Timer> third;
    const auto first = clock.schedule(Seconds(1), [&] {
        record();
        third = clock.schedule(Seconds(2), record);
    });
    const auto second = clock.schedule(Seconds(2), record);
    const auto beyond = clock.schedule(Seconds(11), record);
    clock.advance(Seconds(10));
    EXPECT_EQ(times, (std::vector{1.0, 2.0, 3.0}));
    EXPECT_EQ(clock.untilNextTimer(), Seconds(1));
}

} // namespace orvel::test
