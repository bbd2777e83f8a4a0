// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "platform/LogStore.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace orvel {

/// The newest log lines of this process, in memory. Thread-safe.
class RecentLines final {
public:
    /// As many as the activity window shows. Were it more, a clock that is set back would bring
    /// lines up again that the window has let go.
    static constexpr std::size_t maximumLines = 2'000;
    /// Of category and message together.
    static constexpr std::size_t maximumBytes = std::size_t{2} << 20U;

    explicit RecentLines(std::string subsystem);

    /// Dates the line by the time of day, which it gives.
    std::chrono::system_clock::time_point
    append(LogLevel level, std::string category, std::string message);

    /// From the first one on that is dated `start` or later.
    [[nodiscard]] std::vector<LogEntry> entriesFrom(tavrin::Date start) const;

private:
    struct Line {
        tavrin::Date date;
        LogLevel level;
        std::string category;
        std::string message;
    };

    [[nodiscard]] static std::size_t bytesOf(const Line& line);

    const std::string subsystem_;
    mutable std::mutex mutex_;
    std::deque<Line> lines_;
    std::size_t bytes_ = 0;
};

} // namespace orvel
