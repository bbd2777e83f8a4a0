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

/// How much a line matters, in the platform's own numbers. The agent writes neither `Undefined` nor
/// `Fault`; both may be read back, and so may further numbers, without a name.
enum class LogLevel : int {
    Undefined = 0,
    Debug = 1,
    Info = 2,
    Default = 3,
    Error = 4,
    Fault = 5,
};

/// A line read back. Its texts are well-formed UTF-8.
struct LogEntry {
    tavrin::Date date;
    LogLevel level = LogLevel::Undefined;
    /// Who wrote it: the application's bundle identifier, or that of a framework which logs by
    /// itself.
    std::string subsystem;
    std::string category;
    std::string message;

    bool operator==(const LogEntry&) const = default;
};

/// What a line on standard error calls it.
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

/// Where log lines go, and where those of this process are read back from.
class LogStore : public tavrin::Interface {
public:
    using Entries = std::variant<std::vector<LogEntry>, tavrin::PlatformError>;

    /// One line of one category of the application, such as "collector", dated by the time of day.
    /// Never give it message text, a token or a whole handle. A character of value zero may be read
    /// back as its picture, U+2400. Thread-safe; never throws and never waits for long.
    virtual void write(LogLevel level, std::string_view category, std::string_view message) = 0;

    /// This process's entries of all subsystems, in the order of writing, from the first one on
    /// that is dated `start` or later. Old ones may be gone. Main thread; calls back there exactly
    /// once, never before this returns; not at all when the store is destroyed first.
    virtual void readEntries(tavrin::Date start, std::function<void(Entries)> completion) = 0;
};

} // namespace orvel
