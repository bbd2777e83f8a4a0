// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitProcessControl.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace orvel::test {

namespace {

/// Whether a child process reports a debugger, with or without tracing by this one.
bool childReportsDebugger(bool isTraced) {
    const pid_t child = fork();
    if (child == 0) {
        if (isTraced) {
            ptrace(PT_TRACE_ME, 0, nullptr, 0);
            // Tell the parent that tracing has started.
            raise(SIGSTOP);
        }
        _exit(AppKitProcessControl().isDebuggerAttached() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (isTraced) {
        EXPECT_TRUE(WIFSTOPPED(status));
        // Continue where it stopped.
        ptrace(PT_CONTINUE, child, reinterpret_cast<caddr_t>(1), 0);
        waitpid(child, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) == 1;
}

} // namespace

TEST(AppKitProcessControlTest, ReportsWhetherTheProcessIsTraced) {
    EXPECT_FALSE(childReportsDebugger(false));
    EXPECT_TRUE(childReportsDebugger(true));
}

} // namespace orvel::test
