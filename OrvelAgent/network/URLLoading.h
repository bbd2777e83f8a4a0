// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "platform/URLSession.h"

#include <QCoroTask>

namespace orvel {

/// Sends one request. The session must outlive it. Throws `tavrin::URLError` if no complete reply
/// arrives, and `tavrin::TaskCancelled` at once if the token is cancelled.
QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation);

} // namespace orvel
