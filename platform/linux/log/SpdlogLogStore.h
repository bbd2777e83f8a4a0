// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"
#include "platform/linux/log/JournalSocket.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/WorkQueue.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace spdlog {
class logger;
}

namespace orvel {

/// Keeps the newest lines in memory for reading back, and writes each to the system journal, and to
/// standard error if requested.
///
/// Neither makes `write` wait: a line is dropped if the journal or the terminal does not accept it.
/// In both one call is one line: control characters and line separators are escaped. In memory the
/// message is unchanged. A journal entry has the fields MESSAGE, PRIORITY, SUBSYSTEM, CATEGORY and
/// SYSLOG_IDENTIFIER (the program's name).
class SpdlogLogStore final : public LogStore {
public:
    struct Options {
        /// The application's bundle identifier.
        std::string subsystem;
        /// Lines of that level and above go to standard error; none when absent.
        std::optional<LogLevel> standardErrorLevel;
        /// The journal's socket.
        std::filesystem::path journal;
    };

    /// Longer messages and categories are truncated with an ellipsis.
    static constexpr std::size_t maximumTextBytes = std::size_t{16} << 10U;

    /// How many lines are kept in memory: as many as the activity window shows. With more, setting
    /// the clock back would show lines again that the window has dropped.
    static constexpr std::size_t maximumLines = 2'000;
    /// The limit on all categories and messages in memory together.
    static constexpr std::size_t maximumBytes = std::size_t{2} << 20U;

    explicit SpdlogLogStore(Options options);
    ~SpdlogLogStore() override;

    void write(LogLevel level, std::string_view category, std::string_view message) override;
    void readEntries(tavrin::Date start, std::function<void(Entries)> completion) override;

private:
    /// Keeps the line in memory. Returns the time that it has there.
    std::chrono::system_clock::time_point
    keep(LogLevel level, std::string category, std::string message);

    const std::string subsystem_;
    const JournalSocket journal_;
    const std::optional<LogLevel> standardErrorLevel_;
    std::unique_ptr<spdlog::logger> standardError_;
    std::mutex mutex_;
    /// The newest lines.
    std::deque<LogEntry> entries_;
    std::size_t bytes_ = 0;
    CallbackContext callbackContext_;
    /// Destroyed first: waits for the running read.
    WorkQueue reading_;
};

} // namespace orvel
