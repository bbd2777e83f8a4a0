// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <memory>

namespace orvel::test {

/// This system's clock.
[[nodiscard]] std::unique_ptr<Clock> makeRealClock();

/// The same in a process that may open no more files while a timer starts.
[[nodiscard]] std::unique_ptr<Clock> makeStarvedClock();

} // namespace orvel::test
