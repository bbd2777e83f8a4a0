// SPDX-License-Identifier: Apache-2.0
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace orvel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
    int status;
    /// Standard output and standard error.
    std::string output;
};

Outcome run(const std::string& arguments) {
    const std::string command = std::string(MAKE_SAMPLE_CHATDB) + ' ' + arguments + " 2>&1";
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        output += static_cast<char>(character);
    }
    return {WEXITSTATUS(pclose(pipe)), output};
}

class MakeSampleChatdbTest : public testing::Test {
protected:
    [[nodiscard]] std::string contentOf(const char* name) const {
        std::ifstream file(directory_ / name);
        return (std::ostringstream() << file.rdbuf()).str();
    }

    test::TemporaryDirectory directory_;
    std::string path_ = directory_ / "chat.db";
};

TEST_F(MakeSampleChatdbTest, PrintsASummary) {
    const auto [status, output] = run(path_ + " --messages 50 --end now");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output, path_ + ": 50 messages written, 12 chats, last row 51\n");
}

TEST_F(MakeSampleChatdbTest, RefusesToOverwriteUnlessForced) {
    EXPECT_EQ(run(path_ + " --messages 5").status, 0);
    const auto [status, output] = run(path_ + " --messages 5");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(output, "make-sample-chatdb: " + path_ + " already exists.\n");
    EXPECT_EQ(run(path_ + " --messages 5 --force").status, 0);
}

TEST_F(MakeSampleChatdbTest, WritesTheKnownHandlesAndTheAddressBook) {
    const std::string known = directory_ / "known.json";
    const std::string cards = directory_ / "cards.vcf";
    EXPECT_EQ(
        run(path_ + " --messages 5 --known-handles-out " + known + " --address-book-out " + cards)
            .status,
        0);
    EXPECT_THAT(contentOf("known.json"), StartsWith("[\"2065550101\",\"4155550101\","));
    EXPECT_THAT(contentOf("known.json"), HasSubstr("@example."));
    EXPECT_THAT(contentOf("cards.vcf"), StartsWith("BEGIN:VCARD"));
}

TEST_F(MakeSampleChatdbTest, Appends) {
    EXPECT_EQ(run(path_ + " --messages 5").status, 0);
    const auto [status, output] = run(path_ + " --append 3");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, HasSubstr(": 3 messages added, "));
}

TEST_F(MakeSampleChatdbTest, LeavesNoLogOnRequest) {
    EXPECT_EQ(run(path_ + " --messages 5 --no-wal --no-two-chat").status, 0);
    EXPECT_FALSE(std::filesystem::exists(path_ + "-wal"));
}

TEST_F(MakeSampleChatdbTest, PrintsItsHelp) {
    const auto [status, output] = run("--help");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output, HasSubstr("--without-column"));
}

class MakeSampleChatdbUsageTest : public MakeSampleChatdbTest,
                                  public testing::WithParamInterface<const char*> {};

TEST_P(MakeSampleChatdbUsageTest, WrongUsageExitsWithTwoAndWritesNothing) {
    const auto [status, output] = run(path_ + GetParam());
    EXPECT_EQ(status, 2) << output;
    EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

INSTANTIATE_TEST_SUITE_P(
    MakeSampleChatdb,
    MakeSampleChatdbUsageTest,
    testing::Values(
        " --nonsense",
        " --messages -1",
        " --messages many",
        " --chats 0",
        " --end yesterday",
        " --end 2001-05-05T00:00:00Z",
        " --end 9999-01-01T00:00:00Z",
        " --span 0",
        " --two-chat-share 1.5",
        " --two-chat-share 0.1 --no-two-chat",
        " --without-column guid",
        " --append 1 --messages 5",
        " --append 1 --force"));

TEST_F(MakeSampleChatdbTest, AsksForAPath) {
    EXPECT_EQ(run("").status, 2);
}

} // namespace
} // namespace orvel
