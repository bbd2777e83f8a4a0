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

/// In seconds: a century, whose nanoseconds fit into 64 bits.
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

/// Uses two timers, because no timer follows the continuous clock. One stops while the machine
/// sleeps. The other one changes when the clock is set. The first to fire checks the time.
class ContinuousTimer final : public Clock::Timer {
public:
    ContinuousTimer(tavrin::Seconds delay, std::function<void()> callback)
        : end_(continuousTime() + delay), callback_(std::move(callback)) {
        const std::weak_ptr<ContinuousTimer*> self = self_;
        for (const dispatch_source_t& source : {awake_, wall_}) {
            dispatch_source_set_event_handler(source, ^{
              if (const auto timer = self.lock()) {
                  (*timer)->callBackIfDue();
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
        // Round up, so that the timer rarely fires too early.
        const auto nanoseconds = static_cast<std::int64_t>(std::ceil(seconds * 1e9));
        dispatch_source_set_timer(
            awake_, dispatch_time(DISPATCH_TIME_NOW, nanoseconds), DISPATCH_TIME_FOREVER, 0);
        dispatch_source_set_timer(
            wall_, dispatch_walltime(nullptr, nanoseconds), DISPATCH_TIME_FOREVER, 0);
    }

    void callBackIfDue() {
        if (!callback_) {
            return;
        }
        if (const tavrin::Seconds left = end_ - continuousTime(); left.count() > 0) {
            wait(left);
            return;
        }
        // The callback may destroy this object, so move it out first.
        const std::function<void()> callback = std::exchange(callback_, nullptr);
        callback();
    }

    tavrin::Seconds end_;
    std::function<void()> callback_;
    /// For the handlers, which may outlive this object.
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
