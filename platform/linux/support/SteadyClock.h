// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

namespace orvel {

/// The system's clocks. Timers use the boot-time clock, which also counts while the machine sleeps,
/// and the calling thread's event loop. A timer that got no file descriptor may be up to a minute
/// late after a sleep.
class SteadyClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override;
    [[nodiscard]] tavrin::Seconds uptime() const override;
    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override;
};

} // namespace orvel
