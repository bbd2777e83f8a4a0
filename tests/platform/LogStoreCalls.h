// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

/// Runs the event loop until the condition holds.
inline void waitFor(const std::function<bool()>& condition) {
    while (!condition()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

/// Tests a fixture's `store`, which writes entries of its `subsystem`.
template <typename Fixture>
class LogStoreTest : public testing::Test {
protected:
    static constexpr tavrin::Date longAgo{};

    LogStore& store() { return *fixture_.store; }

    std::vector<LogEntry> entries(tavrin::Date start = longAgo) {
        std::optional<LogStore::Entries> result;
        store().readEntries(
            start, [&result](LogStore::Entries given) { result = std::move(given); });
        waitFor([&result] { return result.has_value(); });
        auto entries = std::get<std::vector<LogEntry>>(std::move(*result));
        // Frameworks and other test cases may also write.
        std::erase_if(entries, [this](const LogEntry& entry) {
            return entry.subsystem != fixture_.subsystem;
        });
        return entries;
    }

    std::vector<std::string> messages(tavrin::Date start = longAgo) {
        std::vector<std::string> messages;
        for (const LogEntry& entry : entries(start)) {
            messages.push_back(entry.message);
        }
        return messages;
    }

    Fixture fixture_;
};

} // namespace orvel::test
