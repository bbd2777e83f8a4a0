// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/log/LogReader.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace orvel::test {

/// A log and a manual clock. Each line is one second later than the previous one.
class LogFixture : public testing::Test {
protected:
    void log(std::string_view message, LogLevel level = LogLevel::Info) {
        clock_.advance(tavrin::Seconds(1));
        store_.write(level, "collector", message);
    }

    /// Logs the lines "1" to `count`.
    void logLines(int count, LogLevel level = LogLevel::Info) {
        for (int number = 1; number <= count; ++number) {
            log(std::to_string(number), level);
        }
    }

    /// Completes the running read and the next one.
    void refresh() {
        processEvents();
        clock_.advance(LogReader::refreshInterval);
        processEvents();
    }

    static LogReader::Subsystems subsystems() {
        return {std::string(RecordingLogStore::subsystem), "updater.test"};
    }

    ManualClock clock_;
    RecordingLogStore store_{clock_};
};

} // namespace orvel::test
