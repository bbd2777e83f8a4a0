// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Interface.h"

#include <functional>
#include <memory>

namespace orvel {

/// The time of day, and timers on the continuous clock, which also counts while the machine sleeps.
/// Main thread.
class Clock : public tavrin::Interface {
public:
    /// A running timer. Destroying it stops it; its callback then never runs.
    class Timer : public tavrin::Interface {};

    [[nodiscard]] virtual tavrin::Date now() const = 0;

    /// Time on the continuous clock since an arbitrary start. Never decreases.
    [[nodiscard]] virtual tavrin::Seconds uptime() const = 0;

    /// Calls back once after the delay; never before this returns, even for a delay of zero or
    /// less. The callback may destroy the timer. Never throws: callers would otherwise wait
    /// forever.
    [[nodiscard]] virtual std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) = 0;
};

} // namespace orvel
