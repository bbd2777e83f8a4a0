// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealClock.h"

#include "platform/macos/support/ContinuousClock.h"

#include <sys/resource.h>

#include <functional>
#include <utility>

namespace orvel::test {

namespace {

/// Starts timers while all descriptors are in use.
class StarvedClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override { return clock_.now(); }
    [[nodiscard]] tavrin::Seconds uptime() const override { return clock_.uptime(); }

    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override {
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none{0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        auto timer = clock_.schedule(delay, std::move(callback));
        setrlimit(RLIMIT_NOFILE, &before);
        return timer;
    }

private:
    ContinuousClock clock_;
};

} // namespace

std::unique_ptr<Clock> makeRealClock() {
    return std::make_unique<ContinuousClock>();
}

std::unique_ptr<Clock> makeStarvedClock() {
    return std::make_unique<StarvedClock>();
}

} // namespace orvel::test
