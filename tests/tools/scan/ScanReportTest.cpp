// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ScanReport.h"

#include <gtest/gtest.h>

namespace orvel {

namespace {

CollectorService::ScanSummary sampleSummary() {
    CollectorService::ScanSummary summary;
    summary.id = QUuid(0x6F1C0B2E, 0x9D4A, 0x4E57, 0x8C, 0x31, 0x2A, 0x9B, 0x7D, 0x5E, 0x0F, 0x14);
    summary.startedAt = tavrin::Date(tavrin::Seconds(1'710'003'942));
    summary.finishedAt = summary.startedAt + tavrin::Seconds(75);
    summary.scanned = 1'234'567;
    summary.collected = 6;
    summary.skippedOutOfScope = 5;
    summary.skippedUndecodable = 4;
    summary.skippedNotUserContent = 3;
    summary.uploaded = 2;
    summary.watermark = 1;
    summary.mode = tavrin::CollectionMode::WithBodies;
    return summary;
}

} // namespace

TEST(ScanReportTest, TheJSONHasTheFieldsOfTheSummaryInOrder) {
    EXPECT_EQ(
        json(sampleSummary()),
        R"({"id":"6F1C0B2E-9D4A-4E57-8C31-2A9B7D5E0F14","startedAt":"2024-03-09T17:05:42Z",)"
        R"("finishedAt":"2024-03-09T17:06:57Z","scanned":1234567,"collected":6,)"
        R"("skippedOutOfScope":5,"skippedUndecodable":4,"skippedNotUserContent":3,"uploaded":2,)"
        R"("watermark":1,"mode":"withBodies"})");
}

TEST(ScanReportTest, TheJSONOfAFailedScanContainsTheError) {
    auto summary = sampleSummary();
    summary.error = "no \"list\"";
    EXPECT_TRUE(json(summary).ends_with(R"(,"error":"no \"list\""})"));
}

TEST(ScanReportTest, TheTextContainsEveryCount) {
    const std::string text = describe(sampleSummary(), true);
    EXPECT_TRUE(text.starts_with("Scan done.\n"));
    for (const char* part : {"1,234,567", "withBodies", "complete", "1 min 15 s"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part;
    }
}

TEST(ScanReportTest, TheTextOfAFailedScanBeginsWithTheError) {
    auto summary = sampleSummary();
    summary.error = "HTTP 500";
    EXPECT_TRUE(describe(summary, false).starts_with("Scan ended with an error: HTTP 500\n"));
}

TEST(ScanReportTest, TheTextContainsNoTerminalControls) {
    auto summary = sampleSummary();
    summary.error = "no\x1b[2J\nway";
    EXPECT_TRUE(describe(summary, false).starts_with("Scan ended with an error: no [2J way\n"));
}

TEST(ScanReportTest, NumbersAreGroupedByThousands) {
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(1'000'000), "1,000,000");
    EXPECT_EQ(grouped(-1000), "-1,000");
    EXPECT_EQ(grouped(-999), "-999");
}

TEST(ScanReportTest, ProgressThroughHistoryShowsShareRateAndTimeLeft) {
    CollectorService::Progress progress;
    progress.scanned = 2500;
    progress.uploaded = 2400;
    progress.backfillFraction = 0.25;
    EXPECT_EQ(
        ScanProgressLine::text(progress, 10),
        "[#####...............]  25 %  2,500 examined, 2,400 sent, 250 a second, 30 s left");
}

TEST(ScanReportTest, ProgressOfNewMessagesShowsNoShare) {
    CollectorService::Progress progress;
    progress.scanned = 10;
    progress.uploaded = 9;
    EXPECT_EQ(ScanProgressLine::text(progress, 0), "10 examined, 9 sent, 0 a second");
}

TEST(ScanReportTest, TheTextContainsNoC1OrBidirectionalControls) {
    auto summary = sampleSummary();
    summary.error = "no\u009B2J\u202Eway";
    EXPECT_TRUE(describe(summary, false).starts_with("Scan ended with an error: no 2J way\n"));
}

} // namespace orvel
