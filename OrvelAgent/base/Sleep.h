// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "platform/Clock.h"

#include <QCoroTask>

namespace orvel {

/// Use it for every pause in a coroutine. The clock must outlive the wait. Throws `TaskCancelled`
/// at once if the token is or becomes cancelled.
QCoro::Task<>
sleepFor(Clock* clock, tavrin::Seconds duration, tavrin::CancellationToken cancellation);

} // namespace orvel
