// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/log/LogReader.h"

#include "OrvelAgent/base/Completion.h"
#include "OrvelAgent/base/Sleep.h"
#include "core/Errors.h"

#include <QDateTime>
#include <QString>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <exception>
#include <iterator>
#include <string_view>
#include <utility>
#include <variant>

namespace orvel {

namespace {

/// Formats the date in local time. QDateTime follows changes of the system's time zone.
std::string localTime(tavrin::Date date) {
    const auto seconds = static_cast<qint64>(std::floor(date.time_since_epoch().count()));
    return QDateTime::fromSecsSinceEpoch(seconds)
        .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
        .toStdString();
}

std::string_view word(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return "debug";
    case LogLevel::Error:
        return "ERROR";
    case LogLevel::Fault:
        return "FAULT";
    default:
        return "info";
    }
}

bool isOwn(const LogEntry& entry, const LogReader::Subsystems& subsystems) {
    return entry.subsystem == subsystems.application || entry.subsystem == subsystems.updater;
}

std::string keyOf(const LogReader::Entry& entry) {
    // Large enough for every double in fixed notation.
    std::array<char, 400> seconds;
    const auto written = std::to_chars(
        seconds.data(),
        seconds.data() + seconds.size(),
        entry.date.time_since_epoch().count(),
        std::chars_format::fixed);
    std::string key(seconds.data(), written.ptr);
    key.append(1, '|').append(entry.category).append(1, '|').append(entry.message);
    return key;
}

/// The entries since `start`. Throws `tavrin::PlatformError` if they cannot be read, and
/// `TaskCancelled` as soon as the token is cancelled.
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

} // namespace

LogReader::LogReader(LogStore& store, Clock& clock, Subsystems subsystems, QObject* parent)
    : QObject(parent), store_(store), clock_(clock), subsystems_(std::move(subsystems)) {}

LogReader::~LogReader() {
    if (streaming_) {
        streaming_->cancel();
    }
}

void LogReader::startStreaming() {
    if (!streaming_) {
        streaming_.emplace();
        pump_ = stream(streaming_->token());
        Q_EMIT changed(0, 0);
    }
}

void LogReader::stopStreaming() {
    if (streaming_) {
        // The coroutine ends during this call.
        std::exchange(streaming_, std::nullopt)->cancel();
        Q_EMIT changed(0, 0);
    }
}

std::string LogReader::plainText() const {
    std::string text;
    std::for_each(entries_.rbegin(), entries_.rend(), [&text](const Entry& entry) {
        text.append(text.empty() ? 0 : 1, '\n').append(localTime(entry.date)).append("  [");
        text.append(entry.category).append("] ").append(word(entry.level)).append("  ");
        text.append(entry.message);
    });
    return text;
}

QCoro::Task<std::vector<std::string>> LogReader::recentLines(
    LogStore* store,
    Clock* clock,
    Subsystems subsystems,
    std::chrono::minutes minutes,
    tavrin::CancellationToken cancellation) {
    const tavrin::Date start = clock->now() - minutes;
    std::vector<std::string> lines;
    try {
        const std::vector<LogEntry> entries = co_await readEntries(store, start, cancellation);
        for (const LogEntry& entry : entries) {
            if (isOwn(entry, subsystems)) {
                std::string& line = lines.emplace_back(localTime(entry.date));
                line.append("  [").append(entry.category).append("] ").append(entry.message);
            }
        }
    } catch (const tavrin::PlatformError&) {
        // Diagnostics without log lines are still useful.
    }
    co_return lines;
}

QCoro::Task<> LogReader::stream(tavrin::CancellationToken cancellation) {
    try {
        while (true) {
            co_await drain(cancellation);
            cancellation.throwIfCancelled();
            co_await sleepFor(&clock_, refreshInterval, cancellation);
        }
    } catch (const tavrin::TaskCancelled&) {
        // Do not touch members here: the reader may have been destroyed.
    } catch (const std::exception& error) {
        streaming_.reset();
        failure_ = error.what();
        Q_EMIT changed(0, 0);
    }
}

QCoro::Task<> LogReader::drain(tavrin::CancellationToken cancellation) {
    const tavrin::Date start = cursor_.value_or(clock_.now() - window);
    try {
        std::vector<LogEntry> fetched = co_await readEntries(&store_, start, cancellation);
        merge(std::move(fetched));
    } catch (const tavrin::PlatformError& error) {
        fail(error.what());
    }
}

void LogReader::merge(std::vector<LogEntry> fetched) {
    const bool hadFailed = std::exchange(failure_, std::nullopt).has_value();
    const std::size_t before = entries_.size();
    std::optional<tavrin::Date> newest;
    for (LogEntry& source : fetched) {
        if (!isOwn(source, subsystems_)) {
            continue;
        }
        Entry entry;
        entry.date = source.date;
        entry.level = source.level;
        entry.category =
            source.subsystem == subsystems_.application ? std::move(source.category) : "update";
        entry.message = std::move(source.message);
        if (seen_.insert(keyOf(entry)).second) {
            entry.id = QUuid::createUuid();
            newest = std::max(newest.value_or(entry.date), entry.date);
            entries_.push_front(std::move(entry));
        }
    }
    if (newest) {
        cursor_ = newest;
    }
    const std::size_t inserted = entries_.size() - before;
    while (entries_.size() > maximumEntries) {
        seen_.erase(keyOf(entries_.back()));
        entries_.pop_back();
    }
    // A batch can exceed the maximum. Its dropped entries were never announced, so do not count
    // them.
    const std::size_t kept = std::min(inserted, maximumEntries);
    const std::size_t dropped = before + kept - entries_.size();
    if (inserted > 0 || hadFailed) {
        Q_EMIT changed(static_cast<int>(kept), static_cast<int>(dropped));
    }
}

void LogReader::fail(std::string reason) {
    if (failure_ != reason) {
        failure_ = std::move(reason);
        Q_EMIT changed(0, 0);
    }
}

} // namespace orvel
