// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Sleep.h"

#include "OrvelAgent/base/Completion.h"

#include <utility>

namespace orvel {

QCoro::Task<>
sleepFor(Clock* clock, tavrin::Seconds duration, tavrin::CancellationToken cancellation) {
    auto start = [clock, duration](auto completion) {
        return clock->schedule(duration, std::move(completion));
    };
    return awaitCompletion<void>(std::move(start), std::move(cancellation));
}

} // namespace orvel
