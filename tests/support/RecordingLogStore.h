// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <mutex>
#include <string>
#include <vector>

namespace orvel::test {

/// Keeps every line for the test to read.
class RecordingLogStore final : public LogStore {
public:
    struct Entry {
        LogLevel level;
        std::string category;
        std::string message;

        bool operator==(const Entry&) const = default;
    };

    [[nodiscard]] std::vector<Entry> entries() const {
        const std::lock_guard lock(mutex_);
        return entries_;
    }

    void write(LogLevel level, std::string_view category, std::string_view message) override {
        const std::lock_guard lock(mutex_);
        entries_.push_back({level, std::string(category), std::string(message)});
    }

private:
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

} // namespace orvel::test
