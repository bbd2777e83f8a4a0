// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace orvel {

enum class LogLevel { Debug, Info, Default, Error };

/// Where log lines go. Thread-safe; writing never throws and never waits for long.
class LogStore {
public:
    LogStore() = default;
    LogStore(const LogStore&) = delete;
    LogStore& operator=(const LogStore&) = delete;
    virtual ~LogStore() = default;

    /// One line of one category, such as "collector". Never give it message text, a token or a
    /// whole handle.
    virtual void write(LogLevel level, std::string_view category, std::string_view message) = 0;
};

} // namespace orvel
