// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/support/ContinuousClock.h"

#include <dispatch/dispatch.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>

namespace orvel {

namespace {

/// Longest wait, in seconds, whose nanoseconds fit into 64 bits; a century.
constexpr double maximumDelay = 100.0 * 366 * 86400;

double secondsPerTick() {
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return static_cast<double>(base.numer) / static_cast<double>(base.denom) * 1e-9;
}

tavrin::Seconds continuousTime() {
    static const double tick = secondsPerTick();
    return tavrin::Seconds(static_cast<double>(mach_continuous_time()) * tick);
}

/// Waits by two timers, because neither counts as the continuous clock does: one stands still while
/// the machine sleeps, the other follows whoever sets the clock. Whichever ends first has a look.
class ContinuousTimer final : public Clock::Timer {
public:
    ContinuousTimer(tavrin::Seconds delay, std::function<void()> callback)
        : end_(continuousTime() + delay), callback_(std::move(callback)) {
        const std::weak_ptr<ContinuousTimer*> self = self_;
        for (const dispatch_source_t& source : {awake_, wall_}) {
            dispatch_source_set_event_handler(source, ^{
              if (const auto timer = self.lock()) {
                  (*timer)->look();
              }
            });
        }
        wait(delay);
        dispatch_activate(awake_);
        dispatch_activate(wall_);
    }

    ~ContinuousTimer() override {
        dispatch_source_cancel(awake_);
        dispatch_source_cancel(wall_);
    }

private:
    static dispatch_source_t makeSource() {
        return dispatch_source_create(
            DISPATCH_SOURCE_TYPE_TIMER, 0, DISPATCH_TIMER_STRICT, dispatch_get_main_queue());
    }

    void wait(tavrin::Seconds left) {
        const double seconds = std::clamp(left.count(), 0.0, maximumDelay);
        // Rounded up, so that the look at the end is rarely one too early.
        const auto nanoseconds = static_cast<std::int64_t>(std::ceil(seconds * 1e9));
        dispatch_source_set_timer(
            awake_, dispatch_time(DISPATCH_TIME_NOW, nanoseconds), DISPATCH_TIME_FOREVER, 0);
        dispatch_source_set_timer(
            wall_, dispatch_walltime(nullptr, nanoseconds), DISPATCH_TIME_FOREVER, 0);
    }

    void look() {
        if (!callback_) {
            return;
        }
        if (const tavrin::Seconds left = end_ - continuousTime(); left.count() > 0) {
            wait(left);
            return;
        }
        // The callback may destroy this object, and with it a callback that were still inside it.
        const std::function<void()> callback = std::exchange(callback_, nullptr);
        callback();
    }

    tavrin::Seconds end_;
    std::function<void()> callback_;
    /// For the handlers, which the system may keep for longer than this lives.
    std::shared_ptr<ContinuousTimer*> self_ = std::make_shared<ContinuousTimer*>(this);
    dispatch_source_t awake_ = makeSource();
    dispatch_source_t wall_ = makeSource();
};

} // namespace

tavrin::Date ContinuousClock::now() const {
    return std::chrono::time_point_cast<tavrin::Seconds>(std::chrono::system_clock::now());
}

tavrin::Seconds ContinuousClock::uptime() const {
    return continuousTime();
}

std::unique_ptr<Clock::Timer>
ContinuousClock::schedule(tavrin::Seconds delay, std::function<void()> callback) {
    return std::make_unique<ContinuousTimer>(delay, std::move(callback));
}

} // namespace orvel
