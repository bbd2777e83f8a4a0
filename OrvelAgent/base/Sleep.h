// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "platform/Clock.h"

#include <QCoroTask>

namespace orvel {

/// Use it for every pause in a coroutine. Waits that long on the clock, which must outlive the
/// wait. Throws `TaskCancelled` at once when the token is cancelled, before or meanwhile.
QCoro::Task<>
sleepFor(Clock* clock, tavrin::Seconds duration, tavrin::CancellationToken cancellation);

} // namespace orvel
