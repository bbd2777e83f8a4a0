// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Date.h"
#include "platform/Clock.h"
#include "platform/LogStore.h"

#include <QCoroTask>
#include <QObject>
#include <QUuid>

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace orvel {

/// Follows the application's own log: keeps the newest entries and refreshes them every second.
///
/// Main thread; the log store reads on its own thread. Borrows store and clock. It may be destroyed
/// at any time, even from a slot connected to its signal.
class LogReader final : public QObject {
    Q_OBJECT

public:
    struct Entry {
        QUuid id;
        tavrin::Date date;
        LogLevel level = LogLevel::Undefined;
        std::string category;
        std::string message;
    };

    /// The entries of these subsystems form the application's own log.
    struct Subsystems {
        /// The bundle identifier.
        std::string application;
        /// The updater framework, where it writes log entries under its own subsystem.
        std::string updater;
    };

    static constexpr std::size_t maximumEntries = 2'000;
    static constexpr tavrin::Seconds refreshInterval{1};
    /// How far back the first read goes.
    static constexpr tavrin::Seconds window{14'400};

    LogReader(LogStore& store, Clock& clock, Subsystems subsystems, QObject* parent = nullptr);
    ~LogReader() override;

    /// Reads at once and then every second, even after a failure. Does nothing while streaming.
    void startStreaming();
    /// Keeps the entries.
    void stopStreaming();

    /// Newest first.
    [[nodiscard]] const std::deque<Entry>& entries() const { return entries_; }
    /// Why the last read failed.
    [[nodiscard]] const std::optional<std::string>& failure() const { return failure_; }
    [[nodiscard]] bool isStreaming() const { return streaming_.has_value(); }

    /// One line per entry, oldest first, in local time.
    [[nodiscard]] std::string plainText() const;

    /// One line per entry of the last `minutes`, oldest first, in local time. Empty if the log
    /// cannot be read. Store and clock must outlive the task. Throws `TaskCancelled` when the token
    /// is cancelled.
    static QCoro::Task<std::vector<std::string>> recentLines(
        LogStore* store,
        Clock* clock,
        Subsystems subsystems,
        std::chrono::minutes minutes,
        tavrin::CancellationToken cancellation = {});

Q_SIGNALS:
    /// First the oldest `dropped` entries were removed from the end, then `inserted` entries were
    /// added at the front. If both are 0, only `failure` or `isStreaming` has changed.
    void changed(int inserted, int dropped);

private:
    QCoro::Task<> stream(tavrin::CancellationToken cancellation);
    QCoro::Task<> drain(tavrin::CancellationToken cancellation);
    void merge(std::vector<LogEntry> fetched);
    void fail(std::string reason);

    LogStore& store_;
    Clock& clock_;
    const Subsystems subsystems_;
    std::deque<Entry> entries_;
    std::optional<std::string> failure_;
    /// The keys of `entries_`.
    std::unordered_set<std::string> seen_;
    /// The newest date in the last batch that contained new entries.
    std::optional<tavrin::Date> cursor_;
    /// Cancels `pump_`. Empty while streaming is stopped.
    std::optional<tavrin::CancellationSource> streaming_;
    QCoro::Task<> pump_;
};

} // namespace orvel
