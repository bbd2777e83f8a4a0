// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"
#include "platform/macos/support/PendingCalls.h"

#include <dispatch/dispatch.h>
#include <os/log.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace orvel {

/// The system's unified log. The system decides how long it keeps each level, and truncates long
/// lines.
class UnifiedLogStore final : public LogStore {
public:
    struct Options {
        /// The application's identifier.
        std::string subsystem;
        /// Lines of this level and above are also written to standard error. No lines without a
        /// value.
        std::optional<LogLevel> standardErrorLevel;
    };

    explicit UnifiedLogStore(Options options);

    void write(LogLevel level, std::string_view category, std::string_view message) override;
    void readEntries(tavrin::Date start, std::function<void(Entries)> completion) override;

private:
    [[nodiscard]] os_log_t logOf(const std::string& category);

    Options options_;
    std::mutex mutex_;
    std::map<std::string, os_log_t> logs_;
    /// Serial, so results arrive in the order of the calls.
    dispatch_queue_t reading_;
    PendingCalls<Entries> reads_;
};

} // namespace orvel
