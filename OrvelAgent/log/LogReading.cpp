// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/log/LogReading.h"

#include "OrvelAgent/base/Completion.h"

#include <utility>
#include <variant>

namespace orvel {

QCoro::Task<std::vector<LogEntry>>
readEntries(LogStore* store, tavrin::Date start, tavrin::CancellationToken cancellation) {
    auto read = [store, start](auto completion) {
        store->readEntries(start, std::move(completion));
    };
    LogStore::Entries entries =
        co_await awaitCompletion<LogStore::Entries>(std::move(read), cancellation);
    if (const auto* error = std::get_if<tavrin::PlatformError>(&entries)) {
        throw tavrin::PlatformError(*error);
    }
    co_return std::get<std::vector<LogEntry>>(std::move(entries));
}

} // namespace orvel
