// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/app/AppModelFixture.h"
#include "tests/support/linux/SystemCalls.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace orvel::test {

namespace {

/// Makes a system call fail, which cannot be undone.
class AppModelDeathTest : public AppModelFixture {
protected:
    AppModelDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// Whether the agent logs that the copy of a killed process stays.
    bool logsThatACopyStays() {
        const auto copy = temporary_ / "tavrin-chatdb-6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F14";
        std::filesystem::create_directory(copy);
        std::ofstream(copy / "chat.db") << "messages";
        failCall(SYS_unlinkat, EIO);
        begin();
        return waitUntil([this, &copy] {
            const auto lines = with_.logStore.lines();
            return std::ranges::any_of(lines, [&copy](const auto& line) {
                return line.level == LogLevel::Error && line.category == "lifecycle" &&
                       line.message ==
                           "a copy of the database that an earlier run left stays: filesystem "
                           "error: Could not remove a directory: Input/output error [" +
                               copy.string() + "]";
            });
        });
    }
};

} // namespace

TEST_F(AppModelDeathTest, ACopyThatCannotBeRemovedIsLogged) {
    EXPECT_EXIT(std::_Exit(logsThatACopyStays() ? 0 : 1), testing::ExitedWithCode(0), "");
}

} // namespace orvel::test
