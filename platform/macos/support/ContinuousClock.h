// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

namespace orvel {

/// The system's clocks. Timers run on the main queue and follow the continuous clock. They can be
/// late only if the clock is set back while the machine sleeps.
class ContinuousClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override;
    [[nodiscard]] tavrin::Seconds uptime() const override;
    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override;
};

} // namespace orvel
