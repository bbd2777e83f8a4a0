// SPDX-License-Identifier: Apache-2.0
//
// Scans in which one system call fails, or one allocation: every one in turn.
#include "tests/campaign/FailingScans.h"
#include "tests/campaign/FaultList.h"
#include "tests/support/Campaign.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>

namespace orvel::test {

namespace {

/// The calls of a scan. Some depend on the timing of the threads, so there is some room.
/// At least as many of each kind as a scan makes. How often it looks at folders, users and groups
/// depends on where its files are and who may write there.
FaultList systemCalls() {
    return FaultList({
        {CallKind::Write, 24, {ENOSPC, EIO}},
        {CallKind::Send, 26, {ECONNRESET}},
        {CallKind::Receive, 36, {ECONNRESET}},
        {CallKind::Rename, 26, {EACCES}},
        {CallKind::Remove, 17, {EACCES}},
        {CallKind::Create, 88, {EMFILE, ENOSPC}},
        {CallKind::Synchronize, 130, {EIO}},
        {CallKind::Change, 14, {ENOSYS, EIO}},
        {CallKind::Read, 180, {EIO}},
        {CallKind::Open, 120, {EMFILE, EACCES}},
        {CallKind::Close, 120, {EIO}},
        {CallKind::Inspect, 400, {EIO}},
        {CallKind::Connect, 2, {ECONNREFUSED, ENETUNREACH}},
        {CallKind::Random, 4, {ENOSYS}},
        {CallKind::Descriptor, 7, {EMFILE}},
        {CallKind::Thread, 2, {EAGAIN}},
    });
}

constexpr auto allocations = static_cast<std::size_t>(CallKind::Allocate);

FaultList memory() {
    return FaultList({{CallKind::Allocate, 31'000, {ENOMEM}}});
}

} // namespace

TEST(FailedCallTest, AFailedSystemCallEndsInSuccessOrInASentence) {
    FailingScans scans;
    const FaultList faults = systemCalls();
    const CallCounts counts = scans.count();
    EXPECT_EQ(faults.missing(counts, allocations), std::nullopt);
    runCampaign(6, [&](unsigned seed) { return scans.run(faults.of(seed)); });
}

TEST(FailedCallTest, AFailedAllocationEndsInSuccessOrInASentence) {
    FailingScans scans;
    const FaultList faults = memory();
    EXPECT_LE(scans.count().at(allocations), faults.size());
    scans.allowAborts();
    runCampaign(4, [&](unsigned seed) { return scans.run(faults.of(seed)); });
    for (const auto& [library, count] : scans.aborts()) {
        std::cout << "ended by " << library << ": " << count << '\n';
    }
}

} // namespace orvel::test
