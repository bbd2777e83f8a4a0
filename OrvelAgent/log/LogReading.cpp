// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/log/LogReading.h"

#include "OrvelAgent/base/Deferred.h"

#include <memory>
#include <utility>
#include <variant>

namespace orvel {

QCoro::Task<std::vector<LogEntry>>
readEntries(LogStore* store, tavrin::Date start, tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    const auto answer = std::make_shared<Deferred<LogStore::Entries>>();
    store->readEntries(
        start, [answer](LogStore::Entries entries) { answer->resolve(std::move(entries)); });
    const auto registration = rejectWhenCancelled(cancellation, answer);
    LogStore::Entries entries = co_await answer->result();
    if (const auto* error = std::get_if<tavrin::PlatformError>(&entries)) {
        throw tavrin::PlatformError(*error);
    }
    co_return std::get<std::vector<LogEntry>>(std::move(entries));
}

} // namespace orvel
