// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Date.h"
#include "platform/LogStore.h"

#include <QCoroTask>

#include <vector>

namespace orvel {

/// The store's entries from that date on; the store must outlive the reading. Throws
/// `tavrin::PlatformError` when they cannot be read, and `TaskCancelled` at once when the token is
/// cancelled, before or meanwhile.
QCoro::Task<std::vector<LogEntry>>
readEntries(LogStore* store, tavrin::Date start, tavrin::CancellationToken cancellation);

} // namespace orvel
