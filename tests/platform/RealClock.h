// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <memory>

namespace orvel::test {

[[nodiscard]] std::unique_ptr<Clock> makeRealClock();

/// A clock whose timers get no file descriptor.
[[nodiscard]] std::unique_ptr<Clock> makeStarvedClock();

} // namespace orvel::test
