// SPDX-License-Identifier: Apache-2.0
#include "tests/e2e/ScanHome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <random>

namespace orvel {

namespace {

using test::Program;
using test::ScanHome;
using testing::IsEmpty;

/// Per test case. The four cases run in parallel, with 200 kills in total.
constexpr int kills = 50;
constexpr int maximumKillsPerHistory = 10;

class KillTest : public testing::TestWithParam<unsigned> {};

} // namespace

// SIGKILL cannot be handled, so the files on disk must be sufficient at any moment. After any
// number of kills, the service must have every message once, and no copy of the database may be
// left.
TEST_P(KillTest, KillsNeitherLoseNorDuplicateMessages) {
    ScanHome home;
    home.makeSample({"--messages", "900", "--no-two-chat"});
    const auto expected = home.sendableGuids();
    const std::set<std::string> distinct(expected.begin(), expected.end());
    ASSERT_EQ(expected.size(), distinct.size());

    // The duration of a whole scan, so that the kills are spread over all of it.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(home.scan().status, 0);
    const auto scanDuration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);

    std::mt19937 random(GetParam());
    std::uniform_int_distribution<std::int64_t> moment(0, scanDuration.count());
    int killed = 0;
    int histories = 0;
    std::size_t uploads = 0;
    while (killed < kills) {
        home.restartService();
        home.forgetProgress();
        ++histories;
        int killedNow = 0;
        bool isDone = false;
        while (!isDone && killedNow < maximumKillsPerHistory && killed < kills) {
            Program program(home.command());
            const bool hasEnded =
                program.waitFor(std::chrono::milliseconds(moment(random))).has_value();
            program.signal(SIGKILL);
            // The program may exit just before the signal.
            if (hasEnded || program.wait() != 128 + SIGKILL) {
                EXPECT_EQ(program.wait(), 0) << program.errors();
                isDone = true;
            } else {
                ++killedNow;
                ++killed;
            }
        }
        const auto last = home.scan();
        ASSERT_EQ(last.status, 0) << last.errors << last.error();
        ASSERT_EQ(home.service().storedCount(), distinct.size());
        ASSERT_EQ(home.storedGuids(), distinct);
        ASSERT_THAT(home.leftovers(), IsEmpty());
        uploads += home.service().requestCount(ScanHome::ingestPath);
    }
    std::cout << killed << " kills over " << histories << " histories, " << uploads
              << " uploads in all; every message stored exactly once.\n";
    RecordProperty("kills", killed);
}

INSTANTIATE_TEST_SUITE_P(Seeds, KillTest, testing::Values(1U, 2U, 3U, 4U));

} // namespace orvel
