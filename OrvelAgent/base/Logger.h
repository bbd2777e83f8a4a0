// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <fmt/format.h>

#include <string>
#include <utility>

namespace orvel {

/// Writes the lines of one category. Borrows the store. Thread-safe.
class Logger final {
public:
    Logger(LogStore& store, std::string category) : store_(store), category_(std::move(category)) {}

    template <typename... Args>
    void info(fmt::format_string<Args...> format, Args&&... args) const {
        store_.write(LogLevel::Info, category_, fmt::format(format, std::forward<Args>(args)...));
    }

    /// At the default level.
    template <typename... Args>
    void log(fmt::format_string<Args...> format, Args&&... args) const {
        store_.write(
            LogLevel::Default, category_, fmt::format(format, std::forward<Args>(args)...));
    }

    template <typename... Args>
    void error(fmt::format_string<Args...> format, Args&&... args) const {
        store_.write(LogLevel::Error, category_, fmt::format(format, std::forward<Args>(args)...));
    }

private:
    LogStore& store_;
    std::string category_;
};

} // namespace orvel
