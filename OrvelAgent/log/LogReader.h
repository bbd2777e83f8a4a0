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

/// Follows the application's own log while somebody watches: the newest entries, refreshed every
/// second.
///
/// Main thread; reading happens elsewhere. Borrows store and clock. It may be destroyed at any
/// moment, also by those whom its signal calls.
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

    /// Whose entries are the application's own.
    struct Subsystems {
        /// The bundle identifier.
        std::string application;
        /// The updater framework, where that logs by itself.
        std::string updater;
    };

    static constexpr std::size_t maximumEntries = 2'000;
    static constexpr tavrin::Seconds refreshInterval{1};
    /// How far back the first reading goes.
    static constexpr tavrin::Seconds window{14'400};

    LogReader(LogStore& store, Clock& clock, Subsystems subsystems, QObject* parent = nullptr);
    ~LogReader() override;

    /// Reads at once and then every second, also after a failure. Does nothing when it does so
    /// already.
    void startStreaming();
    /// Keeps what was read.
    void stopStreaming();

    /// Newest first.
    [[nodiscard]] const std::deque<Entry>& entries() const { return entries_; }
    /// Why the last reading failed.
    [[nodiscard]] const std::optional<std::string>& failure() const { return failure_; }
    [[nodiscard]] bool isStreaming() const { return streaming_.has_value(); }

    /// One line for each entry, the oldest first, in local time.
    [[nodiscard]] std::string plainText() const;

    /// The last minutes of the application's log, the oldest line first, in local time; nothing
    /// when they cannot be read. Store and clock must outlive the reading. Throws `TaskCancelled`
    /// when the token is cancelled.
    static QCoro::Task<std::vector<std::string>> recentLines(
        LogStore* store,
        Clock* clock,
        Subsystems subsystems,
        std::chrono::minutes minutes,
        tavrin::CancellationToken cancellation = {});

Q_SIGNALS:
    /// First, that many of the old entries went at the end; then that many came at the front. When
    /// both are 0, `failure` or `isStreaming` is another.
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
    /// What tells the entries apart that were taken already.
    std::unordered_set<std::string> seen_;
    /// The date of the newest entry taken last.
    std::optional<tavrin::Date> cursor_;
    /// Ends the streaming that runs.
    std::optional<tavrin::CancellationSource> streaming_;
    QCoro::Task<> pump_;
};

} // namespace orvel
