// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

namespace orvel {

/// The system's clocks. Timers run on the boot-time clock, so a sleeping machine does not stretch
/// them, and on the calling thread's event loop. Those that find no file descriptor left may be up
/// to a minute late after a sleep.
class SteadyClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override;
    [[nodiscard]] tavrin::Seconds uptime() const override;
    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override;
};

} // namespace orvel
