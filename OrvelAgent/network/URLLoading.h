// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "platform/URLSession.h"

#include <QCoroTask>

namespace orvel {

/// One exchange over the session, which must outlive it. Throws `tavrin::URLError` when no complete
/// reply comes; cancelling the token ends it at once with `Cancelled`.
QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation);

} // namespace orvel
