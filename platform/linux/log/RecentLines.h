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
    /// As many as the activity window shows. With more, setting the clock back would show lines
    /// again that the window has dropped.
    static constexpr std::size_t maximumLines = 2'000;
    /// The limit on all categories and messages together.
    static constexpr std::size_t maximumBytes = std::size_t{2} << 20U;

    explicit RecentLines(std::string subsystem);

    /// Stamps the line with the current time and returns that time.
    std::chrono::system_clock::time_point
    append(LogLevel level, std::string category, std::string message);

    /// The entries starting at the first one dated `start` or later.
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
