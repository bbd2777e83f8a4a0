// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/SteadyClock.h"

#include "core/FileDescriptor.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <sys/timerfd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <utility>

namespace orvel {

namespace {

/// A century, well within the range of the kernel's seconds.
constexpr double maximumDelay = 100.0 * 366 * 86400;

/// The polling interval of timers without a descriptor, whose clock stops while the machine sleeps.
constexpr tavrin::Seconds pollInterval(60);

tavrin::Seconds bootTime() {
    timespec reading{};
    clock_gettime(CLOCK_BOOTTIME, &reading);
    return tavrin::Seconds(
        static_cast<double>(reading.tv_sec) + static_cast<double>(reading.tv_nsec) * 1e-9);
}

timespec timespecOf(tavrin::Seconds delay) {
    // Zero would disarm the timer, so wait at least a nanosecond.
    const double seconds = std::clamp(delay.count(), 1e-9, maximumDelay);
    const double whole = std::floor(seconds);
    const auto nanoseconds = static_cast<long>((seconds - whole) * 1e9);
    timespec result{};
    result.tv_sec = static_cast<time_t>(whole);
    result.tv_nsec = whole == 0 ? std::max(nanoseconds, 1L) : nanoseconds;
    return result;
}

class BootTimeTimer final : public Clock::Timer {
public:
    BootTimeTimer(
        tavrin::FileDescriptor timer, tavrin::Seconds delay, std::function<void()> callback)
        : descriptor_(std::move(timer)), callback_(std::move(callback)) {
        itimerspec once{};
        once.it_value = timespecOf(delay);
        timerfd_settime(descriptor_.get(), 0, &once, nullptr);
        notifier_ = std::make_unique<QSocketNotifier>(descriptor_.get(), QSocketNotifier::Read);
        QObject::connect(
            notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { fire(); });
    }

private:
    void fire() {
        // Called from the notifier's signal, so delete it later.
        notifier_->setEnabled(false);
        notifier_.release()->deleteLater();
        // Move the callback out first, because it may destroy this object.
        const std::function<void()> callback = std::exchange(callback_, nullptr);
        callback();
    }

    tavrin::FileDescriptor descriptor_;
    std::function<void()> callback_;
    /// Destroyed before the descriptor it watches.
    std::unique_ptr<QSocketNotifier> notifier_;
};

/// Needs no descriptor, but has to poll the clock.
class PollingTimer final : public Clock::Timer {
public:
    PollingTimer(tavrin::Seconds delay, std::function<void()> callback)
        : end_(bootTime() + delay), callback_(std::move(callback)) {
        timer_->setSingleShot(true);
        timer_->setTimerType(Qt::PreciseTimer);
        timer_->callOnTimeout([this] { look(); });
        wait();
    }

private:
    void wait() {
        const auto left = std::clamp(end_ - bootTime(), tavrin::Seconds::zero(), pollInterval);
        timer_->start(std::chrono::ceil<std::chrono::milliseconds>(left));
    }

    void look() {
        if (bootTime() < end_) {
            wait();
            return;
        }
        // Called from the timer's signal, and the callback may destroy this object.
        timer_.release()->deleteLater();
        const std::function<void()> callback = std::exchange(callback_, nullptr);
        callback();
    }

    tavrin::Seconds end_;
    std::function<void()> callback_;
    std::unique_ptr<QTimer> timer_ = std::make_unique<QTimer>();
};

} // namespace

tavrin::Date SteadyClock::now() const {
    return std::chrono::time_point_cast<tavrin::Seconds>(std::chrono::system_clock::now());
}

tavrin::Seconds SteadyClock::uptime() const {
    return bootTime();
}

std::unique_ptr<Clock::Timer>
SteadyClock::schedule(tavrin::Seconds delay, std::function<void()> callback) {
    tavrin::FileDescriptor timer(timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (timer.isOpen()) {
        return std::make_unique<BootTimeTimer>(std::move(timer), delay, std::move(callback));
    }
    return std::make_unique<PollingTimer>(delay, std::move(callback));
}

} // namespace orvel
