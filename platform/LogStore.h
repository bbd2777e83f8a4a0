// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvel {

/// A line's severity, in the platform's numbers. The agent never writes `Undefined` or `Fault`, but
/// may read them back, as well as values without a name here.
enum class LogLevel : int {
    Undefined = 0,
    Debug = 1,
    Info = 2,
    Default = 3,
    Error = 4,
    Fault = 5,
};

/// A log line that was read back. All texts are well-formed UTF-8.
struct LogEntry {
    tavrin::Date date;
    LogLevel level = LogLevel::Undefined;
    /// The bundle identifier of the application, or of the framework that wrote the line.
    std::string subsystem;
    std::string category;
    std::string message;

    bool operator==(const LogEntry&) const = default;
};

/// The level's name in lines on standard error.
[[nodiscard]] constexpr std::string_view name(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return "debug";
    case LogLevel::Info:
        return "info";
    case LogLevel::Default:
        return "default";
    case LogLevel::Error:
    case LogLevel::Undefined:
    case LogLevel::Fault:
        break;
    }
    return "error";
}

/// Writes log lines, and reads back those of this process.
class LogStore : public tavrin::Interface {
public:
    using Entries = std::variant<std::vector<LogEntry>, tavrin::PlatformError>;

    /// Writes one line with the current time. The category is a component, such as "collector".
    /// Never pass message text, a token or a whole handle. A NUL character may be read back as
    /// U+2400. Thread-safe; never throws and never blocks for long.
    virtual void write(LogLevel level, std::string_view category, std::string_view message) = 0;

    /// This process's entries of all subsystems in writing order, starting at the first one dated
    /// `start` or later. Old entries may be missing. Main thread; calls back there exactly once,
    /// never before this returns; not at all when the store is destroyed first.
    virtual void readEntries(tavrin::Date start, std::function<void(Entries)> completion) = 0;
};

} // namespace orvel
