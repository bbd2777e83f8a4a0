// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/SteadyClock.h"

#include "core/Errors.h"

#include <QObject>
#include <QSocketNotifier>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <utility>

namespace orvel {

namespace {

/// Longest wait that still fits the kernel's seconds with room to spare; a century.
constexpr double maximumDelay = 100.0 * 366 * 86400;

timespec timespecOf(tavrin::Seconds delay) {
    // All zero would disarm the timer: wait at least a nanosecond.
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
    BootTimeTimer(tavrin::Seconds delay, std::function<void()> callback)
        : descriptor_(timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC)),
          callback_(std::move(callback)) {
        if (descriptor_ < 0) {
            throw tavrin::PlatformError::fromErrno(errno, "Could not make a timer");
        }
        itimerspec once{};
        once.it_value = timespecOf(delay);
        timerfd_settime(descriptor_, 0, &once, nullptr);
        notifier_ = std::make_unique<QSocketNotifier>(descriptor_, QSocketNotifier::Read);
        QObject::connect(
            notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { fire(); });
    }

    ~BootTimeTimer() override {
        // Before the descriptor it watches.
        notifier_.reset();
        close(descriptor_);
    }

    BootTimeTimer(const BootTimeTimer&) = delete;
    BootTimeTimer& operator=(const BootTimeTimer&) = delete;

private:
    void fire() {
        // We are inside its signal.
        notifier_->setEnabled(false);
        notifier_.release()->deleteLater();
        // The callback may destroy this object, and with it a callback that were still inside it.
        const std::function<void()> callback = std::exchange(callback_, nullptr);
        callback();
    }

    int descriptor_;
    std::function<void()> callback_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace

tavrin::Date SteadyClock::now() const {
    return std::chrono::time_point_cast<tavrin::Seconds>(std::chrono::system_clock::now());
}

tavrin::Seconds SteadyClock::uptime() const {
    timespec reading{};
    clock_gettime(CLOCK_BOOTTIME, &reading);
    return tavrin::Seconds(
        static_cast<double>(reading.tv_sec) + static_cast<double>(reading.tv_nsec) * 1e-9);
}

std::unique_ptr<Clock::Timer>
SteadyClock::schedule(tavrin::Seconds delay, std::function<void()> callback) {
    return std::make_unique<BootTimeTimer>(delay, std::move(callback));
}

} // namespace orvel
