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
    /// A running timer; destroying it stops it, and its callback then never runs.
    class Timer : public tavrin::Interface {};

    [[nodiscard]] virtual tavrin::Date now() const = 0;

    /// The continuous clock's reading, from an arbitrary start; it never goes back.
    [[nodiscard]] virtual tavrin::Seconds uptime() const = 0;

    /// Calls back once, that long from now; never before this returns, even for zero or less. The
    /// callback may destroy the timer. Never throws: what waits for it would else wait for good.
    [[nodiscard]] virtual std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) = 0;
};

} // namespace orvel
