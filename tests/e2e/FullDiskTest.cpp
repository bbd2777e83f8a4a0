// SPDX-License-Identifier: Apache-2.0
#include "tests/e2e/ScanHome.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/messages/WritableDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvel {

namespace {

using test::FileSizeLimit;
using test::ScanHome;
using test::SmallDisk;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::size_t tooSmall = 64 * 1024;

class FullDiskTest : public testing::Test {
protected:
    FullDiskTest() { home_.makeSample({"--messages", "1500", "--no-two-chat"}); }

    ScanHome home_;
};

} // namespace

TEST_F(FullDiskTest, AFullDiskIsReportedAndNoCopyIsLeft) {
    {
        const SmallDisk disk(home_.temporary(), tooSmall);
        const auto run = home_.scan();
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.error(), HasSubstr("Could not copy " + home_.database().string()));
        EXPECT_THAT(run.error(), HasSubstr(std::strerror(disk.errorWhenFull())));
        EXPECT_THAT(home_.leftovers(), IsEmpty());
    }
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 0U);
    EXPECT_EQ(home_.scan().status, 0);
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(FullDiskTest, ALogWithoutRoomIsReportedAndSentLater) {
    const std::size_t before = home_.sendableGuids().size();
    test::WritableDatabase writer(home_.database());
    // Makes the log larger than the main file, and adds one message.
    for (int change = 0; change < 10; ++change) {
        writer.execute("UPDATE message SET is_from_me = 1 - is_from_me");
    }
    writer.execute("INSERT INTO message (guid, date, is_from_me, text)"
                   " SELECT 'newest', date, 1, 'text' FROM message WHERE date > 0 LIMIT 1");
    const auto size = std::filesystem::file_size(home_.database().string() + "-wal");
    ASSERT_GT(size, 2 * std::filesystem::file_size(home_.database()));
    {
        const FileSizeLimit limit(size / 2);
        const auto run = home_.scan();
        EXPECT_EQ(run.status, 0) << run.error();
        EXPECT_THAT(
            run.errors,
            AllOf(
                HasSubstr("orvel-scan: the newest messages come with a later scan, because they "
                          "could not be copied: "),
                HasSubstr(std::strerror(EFBIG))));
        const auto verbose = home_.scan({"--verbose"});
        EXPECT_EQ(verbose.status, 0) << verbose.error();
        const std::size_t line = verbose.errors.find("the newest messages come");
        EXPECT_NE(line, std::string::npos);
        EXPECT_EQ(verbose.errors.find("the newest messages come", line + 1), std::string::npos);
        EXPECT_THAT(home_.leftovers(), IsEmpty());
    }
    // The sample, too, has messages that are only in its log.
    EXPECT_GT(home_.service().storedCount(), 0U);
    EXPECT_LE(home_.service().storedCount(), before);
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.errors, Not(HasSubstr("newest")));
    EXPECT_EQ(home_.service().storedCount(), before + 1);
}

TEST_F(FullDiskTest, UnsavedProgressFailsTheScan) {
    // Every save writes the whole state, which is larger than the limit on files.
    constexpr std::size_t limit = std::size_t{4} << 20;
    std::ofstream(home_.state()) << "filler=" << std::string(limit, 'x') << '\n';
    {
        const FileSizeLimit fileSize(limit);
        const auto run = home_.scan();
        EXPECT_EQ(run.status, 1);
        EXPECT_THAT(run.error(), HasSubstr("Could not save the agent's settings"));
        EXPECT_THAT(home_.leftovers(), IsEmpty());
    }
    // The next scan sends everything again, and the service stores it once.
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.count("uploaded"), static_cast<std::int64_t>(home_.sendableGuids().size()));
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(FullDiskTest, AnUnusableTemporaryFolderIsReported) {
    auto command = home_.command();
    command.environment["TMPDIR"] = (home_ / "token" / "below-a-file").string();
    test::Program program(command);
    const auto run = ScanHome::finish(program);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.error(), HasSubstr("below-a-file"));
}

} // namespace orvel
