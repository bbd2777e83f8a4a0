// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace orvel::test {

/// Keeps what is logged. Thread-safe.
class RecordingLogStore final : public LogStore {
public:
    struct Line {
        LogLevel level;
        std::string category;
        std::string message;

        bool operator==(const Line&) const = default;

        friend std::ostream& operator<<(std::ostream& out, const Line& line) {
            return out << static_cast<int>(line.level) << " [" << line.category << "] "
                       << line.message;
        }
    };

    void write(LogLevel level, std::string_view category, std::string_view message) override {
        const std::lock_guard lock(mutex_);
        lines_.push_back({level, std::string(category), std::string(message)});
    }

    [[nodiscard]] std::vector<Line> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

} // namespace orvel::test
