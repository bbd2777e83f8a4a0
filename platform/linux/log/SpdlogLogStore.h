// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class QObject;
class QThreadPool;

namespace spdlog {
class logger;
}

namespace orvel {

class JournalSocket;
class RecentLines;

/// Keeps the newest lines in memory for reading back, and writes each to the system journal, and to
/// standard error if requested.
///
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

    explicit SpdlogLogStore(Options options);
    ~SpdlogLogStore() override;

    void write(LogLevel level, std::string_view category, std::string_view message) override;
    void readEntries(tavrin::Date start, std::function<void(Entries)> completion) override;

private:
    const std::string subsystem_;
    std::unique_ptr<RecentLines> recentLines_;
    std::unique_ptr<JournalSocket> journal_;
    std::unique_ptr<spdlog::logger> standardError_;
    /// Destroying it drops queued callbacks.
    std::unique_ptr<QObject> callbackContext_;
    /// Destroyed first: waits for a running read.
    std::unique_ptr<QThreadPool> reading_;
};

} // namespace orvel
