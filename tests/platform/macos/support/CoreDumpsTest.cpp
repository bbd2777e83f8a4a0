// SPDX-License-Identifier: Apache-2.0
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>

namespace orvel {

// A death test, because the change cannot be undone for the other tests of this process.
TEST(CoreDumpsDeathTest, TheProcessCannotBeDumped) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            forbidCoreDumps();
            rlimit limit{1, 1};
            getrlimit(RLIMIT_CORE, &limit);
            std::_Exit(limit.rlim_cur == 0 && limit.rlim_max == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "");
}

} // namespace orvel
