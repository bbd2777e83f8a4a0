// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/DebuggerProbe.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace orvel::test {

namespace {

/// What a process finds while this one traces it, or does not.
bool answerOfAChild(bool isTraced) {
    const pid_t child = fork();
    if (child == 0) {
        if (isTraced) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            // The parent sees that the tracing has begun.
            raise(SIGSTOP);
        }
        _exit(isDebuggerAttached() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (isTraced) {
        EXPECT_TRUE(WIFSTOPPED(status));
        ptrace(PTRACE_CONT, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) == 1;
}

} // namespace

TEST(DebuggerProbeTest, FindsOutWhetherTheProcessIsTraced) {
    EXPECT_FALSE(answerOfAChild(false));
    EXPECT_TRUE(answerOfAChild(true));
}

} // namespace orvel::test
