// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <memory>
#include <optional>
#include <string>

namespace spdlog {
class logger;
}

namespace orvel {

/// Writes the lines to spdlog's sinks. One call is one line, whatever the message holds: control
/// characters and line separators are written as escapes.
class SpdlogLogStore final : public LogStore {
public:
    /// Lines of that level and above go to standard error; none when absent.
    explicit SpdlogLogStore(std::optional<LogLevel> standardErrorLevel);
    ~SpdlogLogStore() override;

    void write(LogLevel level, std::string_view category, std::string_view message) override;

private:
    std::unique_ptr<spdlog::logger> logger_;
};

} // namespace orvel
