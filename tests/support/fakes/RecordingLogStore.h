// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Text.h"
#include "platform/Clock.h"
#include "platform/LogStore.h"

#include <QObject>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

/// Stores log entries in memory. Writing is thread-safe; all other functions are for the main
/// thread.
class RecordingLogStore final : public LogStore {
public:
    struct Line {
        LogLevel level;
        std::string category;
        std::string message;

        bool operator==(const Line&) const = default;

        friend std::ostream& operator<<(std::ostream& out, const Line& line) {
            return out << static_cast<int>(line.level) << " [" << line.category << "] "
                       << line.message;
        }
    };

    /// The subsystem of written entries.
    static constexpr std::string_view subsystem = "app.test";

    /// If set, reads fail with this error.
    std::optional<tavrin::PlatformError> readError;

    RecordingLogStore() = default;
    /// Dates its lines by the clock.
    explicit RecordingLogStore(const Clock& clock) : clock_(&clock) {}

    /// Adds an unchanged entry, which `lines()` does not contain.
    void append(LogEntry entry) {
        const std::lock_guard lock(mutex_);
        entries_.push_back(std::move(entry));
    }

    /// From now on reads wait.
    void hold() { isHolding_ = true; }

    /// Completes the waiting reads.
    void answer() {
        isHolding_ = false;
        for (auto& read : std::exchange(waiting_, {})) {
            later(std::move(read));
        }
    }

    /// The start dates of all reads, in order.
    [[nodiscard]] const std::vector<tavrin::Date>& reads() const { return reads_; }

    /// Frees the entries before that date, all of `lines()` and all of `reads()`.
    void forgetBefore(tavrin::Date date) {
        const std::lock_guard lock(mutex_);
        std::erase_if(entries_, [date](const LogEntry& entry) { return entry.date < date; });
        lines_.clear();
        reads_.clear();
        entries_.shrink_to_fit();
        lines_.shrink_to_fit();
    }

    /// Called with each written message, on its thread.
    void setOnWrite(std::function<void(std::string_view)> onWrite) {
        onWrite_ = std::move(onWrite);
    }

    void write(LogLevel level, std::string_view category, std::string_view message) override {
        {
            const std::lock_guard lock(mutex_);
            lines_.push_back({level, std::string(category), std::string(message)});
            entries_.push_back(
                {clock_ != nullptr ? clock_->now() : tavrin::Date(std::chrono::system_clock::now()),
                 level,
                 std::string(subsystem),
                 tavrin::repairedUTF8(category),
                 tavrin::repairedUTF8(message)});
        }
        if (onWrite_) {
            onWrite_(message);
        }
    }

    void readEntries(tavrin::Date start, std::function<void(Entries)> completion) override {
        reads_.push_back(start);
        auto deliver = [completion = std::move(completion), entries = entriesFrom(start)] {
            completion(entries);
        };
        if (isHolding_) {
            waiting_.emplace_back(std::move(deliver));
        } else {
            later(std::move(deliver));
        }
    }

    [[nodiscard]] std::vector<Line> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    [[nodiscard]] Entries entriesFrom(tavrin::Date start) const {
        if (readError) {
            return *readError;
        }
        const std::lock_guard lock(mutex_);
        const auto first = std::ranges::find_if(
            entries_, [start](const LogEntry& entry) { return entry.date >= start; });
        return std::vector<LogEntry>(first, entries_.end());
    }

    void later(std::function<void()> job) {
        QMetaObject::invokeMethod(&callbackContext_, std::move(job), Qt::QueuedConnection);
    }

    const Clock* clock_ = nullptr;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    std::vector<LogEntry> entries_;
    std::vector<tavrin::Date> reads_;
    bool isHolding_ = false;
    std::vector<std::function<void()>> waiting_;
    std::function<void(std::string_view)> onWrite_;
    QObject callbackContext_;
};

} // namespace orvel::test
