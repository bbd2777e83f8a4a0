// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Sleep.h"

#include "OrvelAgent/base/Deferred.h"

#include <memory>

namespace orvel {

QCoro::Task<>
sleepFor(Clock* clock, tavrin::Seconds duration, tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    const auto wake = std::make_shared<Deferred<void>>();
    const auto timer = clock->schedule(duration, [wake] { wake->resolve({}); });
    const auto registration = rejectWhenCancelled(cancellation, wake);
    co_await wake->result();
}

} // namespace orvel
