// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealClock.h"

#include "platform/linux/support/SteadyClock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <utility>

namespace {

/// Whether creating a timer descriptor fails.
bool hasNoMoreFiles = false;

} // namespace

// Replaces the system's function. Lowering the process's descriptor limit would also affect the
// sanitizers.
extern "C" int timerfd_create(int clock, int flags) noexcept {
    if (hasNoMoreFiles) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_timerfd_create, clock, flags));
}

namespace orvel::test {

namespace {

/// The system's clock, whose timers get no file descriptor.
class StarvedClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override { return clock_.now(); }
    [[nodiscard]] tavrin::Seconds uptime() const override { return clock_.uptime(); }

    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override {
        hasNoMoreFiles = true;
        auto timer = clock_.schedule(delay, std::move(callback));
        hasNoMoreFiles = false;
        return timer;
    }

private:
    SteadyClock clock_;
};

} // namespace

std::unique_ptr<Clock> makeRealClock() {
    return std::make_unique<SteadyClock>();
}

std::unique_ptr<Clock> makeStarvedClock() {
    return std::make_unique<StarvedClock>();
}

} // namespace orvel::test
