// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "platform/URLSession.h"

#include <QCoroTask>

namespace orvel {

/// One exchange over the session, which must outlive it. Throws the session's `tavrin::URLError`
/// when no complete reply comes, and `tavrin::TaskCancelled` at once when the token is cancelled.
QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation);

} // namespace orvel
