// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/FaultAtCall.h"

#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace orvel::test {

namespace {

/// The program is mv, which needs one rename.
class FaultAtCallTest : public testing::Test {
protected:
    FaultAtCallTest() { std::ofstream(old_) << "content"; }

    int move(const std::map<std::string, std::string>& environment) {
        Program::Options options;
        options.arguments = {"/bin/mv", old_.string(), new_.string()};
        options.environment = environment;
        Program program(options);
        return program.wait();
    }

    TemporaryDirectory directory_;
    std::filesystem::path old_ = directory_ / "old";
    std::filesystem::path new_ = directory_ / "new";
    FaultAtCall calls_{directory_ / "counts", "mv"};
};

constexpr auto renames = static_cast<std::size_t>(CallKind::Rename);

} // namespace

TEST_F(FaultAtCallTest, CountsTheCallsOfItsProgram) {
    EXPECT_EQ(move(calls_.counting()), 0);
    EXPECT_EQ(calls_.counts().at(renames), 1U);
    EXPECT_TRUE(std::filesystem::exists(new_));
}

TEST_F(FaultAtCallTest, DoesNotTouchOtherPrograms) {
    const FaultAtCall others(directory_ / "counts", "other");
    EXPECT_EQ(move(others.with({CallKind::Rename, 1, CallFault::Action::KillBefore})), 0);
    EXPECT_EQ(others.counts(), CallCounts());
}

TEST_F(FaultAtCallTest, KillsBeforeTheCall) {
    EXPECT_EQ(
        move(calls_.with({CallKind::Rename, 1, CallFault::Action::KillBefore})), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(old_));
}

TEST_F(FaultAtCallTest, KillsAfterTheCall) {
    EXPECT_EQ(
        move(calls_.with({CallKind::Rename, 1, CallFault::Action::KillAfter})), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(new_));
}

TEST_F(FaultAtCallTest, DoesNotKillWithoutThatManyCalls) {
    EXPECT_EQ(move(calls_.with({CallKind::Rename, 2, CallFault::Action::KillBefore})), 0);
}

TEST_F(FaultAtCallTest, MakesTheCallFail) {
    EXPECT_EQ(move(calls_.with({CallKind::Rename, 1, CallFault::Action::Fail, EIO})), 1);
    EXPECT_TRUE(std::filesystem::exists(old_));
    EXPECT_FALSE(std::filesystem::exists(new_));
}

TEST_F(FaultAtCallTest, MakesAllLaterCallsFail) {
    // It removes an existing directory, then tries again.
    EXPECT_EQ(move(calls_.with({CallKind::Rename, 1, CallFault::Action::FailFromThen, EIO})), 1);
    EXPECT_TRUE(std::filesystem::exists(old_));
}

TEST_F(FaultAtCallTest, ChoosesOnlyCallsThatWereCounted) {
    CallCounts counts{};
    counts.at(renames) = 3;
    std::mt19937 random(1);
    bool hasFirst = false;
    bool hasLast = false;
    for (int draw = 0; draw < 200; ++draw) {
        const CallFault point = FaultAtCall::chooseKill(counts, random);
        EXPECT_EQ(point.kind, CallKind::Rename);
        EXPECT_GE(point.number, 1U);
        EXPECT_LE(point.number, 3U);
        hasFirst = hasFirst || point.number == 1;
        hasLast = hasLast || point.number == 3;
    }
    EXPECT_TRUE(hasFirst && hasLast);
}

} // namespace orvel::test
