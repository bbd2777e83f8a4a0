// SPDX-License-Identifier: Apache-2.0
#include "platform/CoreDumps.h"

#include "platform/linux/signin/SchemeRegistration.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace orvel {

namespace {

rlim_t coreLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_CORE, &limit);
    return limit.rlim_cur;
}

/// Allows core dumps as far as the system does.
void allowCoreDumps() {
    rlimit limit{};
    getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_CORE, &limit);
}

} // namespace

// Each runs in its own process, because the change cannot be undone for later tests.
TEST(CoreDumpsDeathTest, ALimitOfOneByteLeavesTheProcessOpenToThePortal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    allowCoreDumps();
    if (coreLimit() == 0) {
        GTEST_SKIP() << "This session may not write core dumps at all.";
    }
    EXPECT_EXIT(
        {
            forbidCoreDumps();
            std::_Exit(coreLimit() == 1 && prctl(PR_GET_DUMPABLE) == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "");
}

TEST(CoreDumpsDeathTest, WithoutTheRightToALimitOfOneByteTheProcessCannotBeDumped) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const rlimit none{};
            setrlimit(RLIMIT_CORE, &none);
            const test::UnprivilegedUser user;
            prctl(PR_SET_DUMPABLE, 1);
            forbidCoreDumps();
            std::_Exit(prctl(PR_GET_DUMPABLE) == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "");
}

TEST(CoreDumpsDeathTest, ACrashWritesNoFile) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const test::TemporaryDirectory folder;
    EXPECT_EXIT(
        {
            std::filesystem::current_path(folder.path());
            allowCoreDumps();
            forbidCoreDumps();
            std::abort();
        },
        testing::KilledBySignal(SIGABRT),
        "");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(CoreDumpsDeathTest, TheProcessCanStillFindItsExecutable) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const test::UnprivilegedUser user;
            forbidCoreDumps();
            std::cerr << SchemeRegistration::callbackProgram().string();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "/bin/orvel-agent-callback");
}

} // namespace orvel
