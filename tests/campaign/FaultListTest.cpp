// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/FaultList.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>

namespace orvel::test {

namespace {

FaultList sample() {
    return FaultList(
        {{CallKind::Write, 5, {ENOSPC, EIO}}, {CallKind::Rename, 3, {EACCES}}},
        {CallFault::Action::Fail, CallFault::Action::FailFromThen});
}

} // namespace

TEST(FaultListTest, TheSeedsGiveEachFaultOnce) {
    const FaultList list = sample();
    EXPECT_EQ(list.size(), 26U);
    std::set<std::tuple<CallKind, std::uint64_t, CallFault::Action, int>> faults;
    for (unsigned seed = 1; seed <= list.size(); ++seed) {
        const CallFault fault = list.of(seed);
        EXPECT_GE(fault.number, 1U);
        EXPECT_LE(fault.number, fault.kind == CallKind::Write ? 5U : 3U);
        faults.emplace(fault.kind, fault.number, fault.action, fault.error);
    }
    EXPECT_EQ(faults.size(), 26U);
    EXPECT_EQ(list.of(27).number, list.of(1).number);
}

TEST(FaultListTest, NoticesCallsThatAreNotInTheList) {
    CallCounts counts{};
    counts.at(static_cast<std::size_t>(CallKind::Write)) = 5;
    EXPECT_EQ(sample().missing(counts, callKinds), std::nullopt);
    counts.at(static_cast<std::size_t>(CallKind::Write)) = 6;
    EXPECT_NE(sample().missing(counts, callKinds), std::nullopt);
    counts.at(static_cast<std::size_t>(CallKind::Write)) = 0;
    counts.at(static_cast<std::size_t>(CallKind::Send)) = 1;
    EXPECT_NE(sample().missing(counts, callKinds), std::nullopt);
    EXPECT_EQ(sample().missing(counts, 1), std::nullopt);
}

} // namespace orvel::test
