// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/LinuxProcessControl.h"

#include "tests/platform/linux/desktop/InstalledPrograms.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvel::test {

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The result in a child process, which this process traces or not.
bool answerOfAChild(bool isTraced) {
    const pid_t child = fork();
    if (child == 0) {
        if (isTraced) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            // Tells the parent that tracing has begun.
            raise(SIGSTOP);
        }
        _exit(LinuxProcessControl("/bin/false").isDebuggerAttached() ? 1 : 0);
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

TEST(LinuxProcessControlTest, DetectsATracer) {
    EXPECT_FALSE(answerOfAChild(false));
    EXPECT_TRUE(answerOfAChild(true));
}

TEST(LinuxProcessControlTest, RelaunchesAfterItsEnd) {
    const TemporaryDirectory folder;
    const std::filesystem::path program = folder / "successor $HOME";
    const std::filesystem::path report = folder / "report";
    std::ofstream(program)
        << "#!/bin/sh\n"
        << "{ echo variable=$ORVEL_AGENT_BUNDLE$XDG_ACTIVATION_TOKEN; ls /proc/self/fd | wc -l\n"
        << "  echo session=$(cut -d ' ' -f 6 /proc/self/stat); } >" << report << ".new\nmv "
        << report << ".new " << report << '\n';
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    Program probe(
        {{DESKTOP_PROBE, "relaunch", program.string(), "0.1"},
         {{"ORVEL_AGENT_BUNDLE", "bundle"}, {"XDG_ACTIVATION_TOKEN", "ours"}}});
    EXPECT_EQ(probe.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(report));
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(report); }));
    std::ifstream file(report);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(text, StartsWith("variable=bundle\n"));
    // The three standard descriptors, and that of the listing itself.
    EXPECT_THAT(text, HasSubstr("\n4\n"));
    EXPECT_THAT(text, Not(HasSubstr("session=" + std::to_string(getsid(0)) + "\n")));
}

TEST(LinuxProcessControlTest, RelaunchesAfterAMinuteWhenItDoesNotEnd) {
    InstalledPrograms programs;
    programs.install("sleep");
    const std::filesystem::path successor = programs.install("successor");
    Program probe({{DESKTOP_PROBE, "linger", successor.string()}, {}});
    EXPECT_TRUE(waitUntil([&] { return programs.ran().ends_with("successor \n"); }));
    EXPECT_FALSE(probe.waitFor({}).has_value());
    std::string expected;
    for (int second = 0; second < 61; ++second) {
        expected += "sleep 1\n";
    }
    EXPECT_EQ(programs.ran(), expected + "successor \n");
}

} // namespace orvel::test
