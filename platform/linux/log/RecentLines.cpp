// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/RecentLines.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orvel {

RecentLines::RecentLines(std::string subsystem) : subsystem_(std::move(subsystem)) {}

std::chrono::system_clock::time_point
RecentLines::append(LogLevel level, std::string category, std::string message) {
    const std::lock_guard lock(mutex_);
    // Taken while locked, so that later lines have later dates.
    const auto now = std::chrono::system_clock::now();
    lines_.push_back(
        {std::chrono::time_point_cast<tavrin::Seconds>(now),
         level,
         std::move(category),
         std::move(message)});
    bytes_ += bytesOf(lines_.back());
    while (lines_.size() > maximumLines || bytes_ > maximumBytes) {
        bytes_ -= bytesOf(lines_.front());
        lines_.pop_front();
    }
    return now;
}

std::vector<LogEntry> RecentLines::entriesFrom(tavrin::Date start) const {
    const std::lock_guard lock(mutex_);
    const auto first =
        std::ranges::find_if(lines_, [start](const Line& line) { return line.date >= start; });
    std::vector<LogEntry> entries;
    entries.reserve(static_cast<std::size_t>(std::distance(first, lines_.end())));
    std::transform(first, lines_.end(), std::back_inserter(entries), [this](const Line& line) {
        return LogEntry{line.date, line.level, subsystem_, line.category, line.message};
    });
    return entries;
}

std::size_t RecentLines::bytesOf(const Line& line) {
    return line.category.size() + line.message.size();
}

} // namespace orvel
