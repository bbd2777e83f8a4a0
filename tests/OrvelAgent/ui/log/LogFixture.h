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

/// A log to be read on a clock that stands still; each line is a second after the one before.
class LogFixture : public testing::Test {
protected:
    void log(std::string_view message, LogLevel level = LogLevel::Info) {
        clock_.advance(tavrin::Seconds(1));
        store_.write(level, "collector", message);
    }

    /// Lines "1" up to that number.
    void logLines(int count, LogLevel level = LogLevel::Info) {
        for (int number = 1; number <= count; ++number) {
            log(std::to_string(number), level);
        }
    }

    /// Lets the reading under way end, and the next one come and end.
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
