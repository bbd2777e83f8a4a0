// SPDX-License-Identifier: Apache-2.0
//
// The agent's program, without a screen.
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvel {

namespace {

using test::Program;
using test::TemporaryDirectory;
using namespace std::chrono_literals;

class AgentTest : public testing::Test {
protected:
    AgentTest() {
        std::filesystem::create_directories(database_.parent_path());
        std::filesystem::create_directories(home_ / "temporary");
        std::filesystem::create_directories(home_ / "run");
        std::filesystem::permissions(home_ / "run", std::filesystem::perms::owner_all);
        options_.arguments = {ORVEL_AGENT};
        options_.environment = {
            {"HOME", home_.path().string()},
            {"TMPDIR", (home_ / "temporary").string()},
            {"XDG_CONFIG_HOME", (home_ / "config").string()},
            {"XDG_RUNTIME_DIR", (home_ / "run").string()},
            {"QT_QPA_PLATFORM", "offscreen"},
            {"DISPLAY", ""},
            {"WAYLAND_DISPLAY", ""},
            {"DBUS_SESSION_BUS_ADDRESS", ""}};
    }

    /// Expects that the running agent ends in time after this signal.
    static void expectEnd(Program& agent, int signal) {
        ASSERT_EQ(agent.waitFor(2s), std::nullopt) << agent.errors();
        const auto start = std::chrono::steady_clock::now();
        agent.signal(signal);
        EXPECT_EQ(agent.waitFor(20s), 0) << agent.errors();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
    }

    TemporaryDirectory home_;
    std::filesystem::path database_ = home_ / "Library" / "Messages" / "chat.db";
    Program::Options options_;
};

} // namespace

TEST_F(AgentTest, APipeInsteadOfTheDatabaseDoesNotKeepItFromEnding) {
    ASSERT_EQ(mkfifo(database_.c_str(), 0600), 0);
    Program agent(options_);
    expectEnd(agent, SIGTERM);
}

#ifdef HANGING_OPEN
TEST_F(AgentTest, PassesASignInCallbackOn) {
    options_.arguments.emplace_back("orvelagent://callback?code=secret");
    Program agent(options_);
    // That of the callback program, without an agent that waits.
    EXPECT_EQ(agent.wait(), 1);
    EXPECT_EQ(agent.errors(), "There is no session bus on which Orvel Agent could be reached.\n");
    EXPECT_EQ(agent.output(), "");
}

TEST_F(AgentTest, ADatabaseThatCannotBeOpenedDoesNotKeepItFromEnding) {
    std::ofstream(database_) << "SQLite format 3";
    options_.environment["LD_PRELOAD"] = HANGING_OPEN;
    options_.environment["HANGING_OPEN_PATH"] = database_.string();
    options_.environment["HANGING_OPEN_MARK"] = (home_ / "is-hanging").string();
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    options_.environment["ASAN_OPTIONS"] =
        (sanitizer != nullptr ? std::string(sanitizer) + ":" : "") + "verify_asan_link_order=0";
    Program agent(options_);
    expectEnd(agent, SIGTERM);
    EXPECT_TRUE(std::filesystem::exists(home_ / "is-hanging")) << agent.errors();
}
#endif

} // namespace orvel
