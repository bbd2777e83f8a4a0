// SPDX-License-Identifier: Apache-2.0
#include "tests/support/linux/KillAtCall.h"

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

/// The killed program is mv, which needs one rename.
class KillAtCallTest : public testing::Test {
protected:
    KillAtCallTest() { std::ofstream(old_) << "content"; }

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
    KillAtCall calls_{directory_ / "counts", "mv"};
};

constexpr auto renames = static_cast<std::size_t>(CallKind::Rename);

} // namespace

TEST_F(KillAtCallTest, CountsTheCallsOfItsProgram) {
    EXPECT_EQ(move(calls_.counting()), 0);
    EXPECT_EQ(calls_.counts().at(renames), 1U);
    EXPECT_TRUE(std::filesystem::exists(new_));
}

TEST_F(KillAtCallTest, DoesNotTouchOtherPrograms) {
    const KillAtCall others(directory_ / "counts", "other");
    EXPECT_EQ(move(others.killing({CallKind::Rename, 1, KillPoint::Moment::Before})), 0);
    EXPECT_EQ(others.counts(), CallCounts());
}

TEST_F(KillAtCallTest, KillsBeforeTheCall) {
    EXPECT_EQ(
        move(calls_.killing({CallKind::Rename, 1, KillPoint::Moment::Before})), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(old_));
}

TEST_F(KillAtCallTest, KillsAfterTheCall) {
    EXPECT_EQ(move(calls_.killing({CallKind::Rename, 1, KillPoint::Moment::After})), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(new_));
}

TEST_F(KillAtCallTest, DoesNotKillWithoutThatManyCalls) {
    EXPECT_EQ(move(calls_.killing({CallKind::Rename, 2, KillPoint::Moment::Before})), 0);
}

TEST_F(KillAtCallTest, ChoosesOnlyCallsThatWereCounted) {
    CallCounts counts{};
    counts.at(renames) = 3;
    std::mt19937 random(1);
    bool hasFirst = false;
    bool hasLast = false;
    for (int draw = 0; draw < 200; ++draw) {
        const KillPoint point = KillAtCall::choose(counts, random);
        EXPECT_EQ(point.kind, CallKind::Rename);
        EXPECT_GE(point.number, 1U);
        EXPECT_LE(point.number, 3U);
        hasFirst = hasFirst || point.number == 1;
        hasLast = hasLast || point.number == 3;
    }
    EXPECT_TRUE(hasFirst && hasLast);
}

} // namespace orvel::test
