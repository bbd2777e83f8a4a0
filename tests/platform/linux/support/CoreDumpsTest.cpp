// SPDX-License-Identifier: Apache-2.0
#include "platform/Platform.h"
#include "platform/linux/signin/SchemeRegistration.h"
#include "tests/support/UnprivilegedUser.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <cstdlib>
#include <iostream>

namespace orvel {

// Runs in its own process, because the change cannot be undone for later tests.
TEST(CoreDumpsDeathTest, TheProcessCannotBeDumped) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool couldBefore = prctl(PR_GET_DUMPABLE) != 0;
            forbidCoreDumps();
            std::_Exit(couldBefore && prctl(PR_GET_DUMPABLE) == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "");
}

TEST(CoreDumpsDeathTest, TheProcessCanStillFindItsExecutable) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const test::UnprivilegedUser user;
            forbidCoreDumps();
            std::cerr << SchemeRegistration::defaultProgram().string();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "/bin/orvel-agent-callback");
}

} // namespace orvel
