// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/SpdlogLogStore.h"
#include "tests/support/RecordingLogStore.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace orvel::test {

namespace {

/// Sends the process's standard error to a file while it lives.
class StandardErrorToFile final {
public:
    explicit StandardErrorToFile(const std::filesystem::path& file) : before_(dup(STDERR_FILENO)) {
        const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(descriptor, STDERR_FILENO);
        close(descriptor);
    }
    ~StandardErrorToFile() {
        dup2(before_, STDERR_FILENO);
        close(before_);
    }
    StandardErrorToFile(const StandardErrorToFile&) = delete;
    StandardErrorToFile& operator=(const StandardErrorToFile&) = delete;

private:
    int before_;
};

/// The lines as "level category: message", without their time.
struct SpdlogFixture {
    TemporaryDirectory folder;
    StandardErrorToFile redirection{folder / "log"};
    SpdlogLogStore store{LogLevel::Debug};

    std::vector<std::string> rawLines() {
        std::vector<std::string> lines;
        std::ifstream file(folder / "log");
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    std::vector<std::string> lines() {
        std::vector<std::string> lines = rawLines();
        for (std::string& line : lines) {
            line.erase(0, line.find(' ') + 1);
        }
        return lines;
    }
};

struct RecordingFixture {
    RecordingLogStore store;

    std::vector<std::string> lines() {
        std::vector<std::string> lines;
        for (const auto& [level, category, message] : store.lines()) {
            constexpr std::array names = {"debug", "info", "default", "error"};
            lines.push_back(
                std::string(names.at(static_cast<std::size_t>(level))) + " " + category + ": " +
                message);
        }
        return lines;
    }
};

template <typename Fixture>
class LogStoreTest : public testing::Test {
protected:
    Fixture fixture_;
};

using Fixtures = testing::Types<SpdlogFixture, RecordingFixture>;
TYPED_TEST_SUITE(LogStoreTest, Fixtures);

} // namespace

TYPED_TEST(LogStoreTest, KeepsLevelCategoryAndMessageInOrder) {
    LogStore& store = this->fixture_.store;
    store.write(LogLevel::Debug, "collector", "one");
    store.write(LogLevel::Info, "auth", "two {} %v");
    store.write(LogLevel::Default, "contacts", "");
    store.write(LogLevel::Error, "lifecycle", "\xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96");
    EXPECT_EQ(
        this->fixture_.lines(),
        (std::vector<std::string>{
            "debug collector: one",
            "info auth: two {} %v",
            "default contacts: ",
            "error lifecycle: \xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96"}));
}

TYPED_TEST(LogStoreTest, OneCallIsOneLine) {
    this->fixture_.store.write(LogLevel::Info, "auth", "one\ntwo\r\nthree");
    EXPECT_EQ(this->fixture_.lines().size(), 1U);
}

TYPED_TEST(LogStoreTest, LinesOfSeveralThreadsStayWhole) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 200;
    std::vector<std::thread> threads;
    for (int index = 0; index < threadCount; ++index) {
        threads.emplace_back([this, index] {
            const std::string message(100, static_cast<char>('a' + index));
            for (int line = 0; line < lineCount; ++line) {
                this->fixture_.store.write(LogLevel::Info, "t", message);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = this->fixture_.lines();
    EXPECT_EQ(lines.size(), std::size_t{threadCount * lineCount});
    for (int index = 0; index < threadCount; ++index) {
        const std::string expected = "info t: " + std::string(100, static_cast<char>('a' + index));
        EXPECT_EQ(std::ranges::count(lines, expected), lineCount);
    }
}

TEST(SpdlogLogStoreTest, StartsEachLineWithItsTime) {
    SpdlogFixture fixture;
    fixture.store.write(LogLevel::Info, "auth", "x");
    EXPECT_THAT(
        fixture.rawLines(),
        testing::ElementsAre(testing::MatchesRegex(
            "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2} "
            "info auth: x")));
}

TEST(SpdlogLogStoreTest, EscapesWhatCouldBreakTheLineOrSteerATerminal) {
    SpdlogFixture fixture;
    fixture.store.write(
        LogLevel::Info,
        "a\nb",
        std::string_view(
            "\n\r\t\0\x1B[2J\x7F|\xC2\x85\xC2\xA0|\xE2\x80\xA8\xE2\x80\xA9\xE2\x80", 23));
    EXPECT_EQ(
        fixture.lines(),
        (std::vector<std::string>{"info a\\nb: \\n\\x0d\\x09\\x00\\x1b[2J\\x7f|\\xc2\\x85\xC2\xA0|"
                                  "\\xe2\\x80\\xa8\\xe2\\x80\\xa9\xE2\x80"}));
}

TEST(SpdlogLogStoreTest, LeavesOutLowerLevels) {
    SpdlogFixture fixture;
    SpdlogLogStore store(LogLevel::Default);
    for (const LogLevel level :
         {LogLevel::Debug, LogLevel::Info, LogLevel::Default, LogLevel::Error}) {
        store.write(level, "c", "m");
    }
    EXPECT_EQ(fixture.lines(), (std::vector<std::string>{"default c: m", "error c: m"}));
}

TEST(SpdlogLogStoreTest, WritesNothingToStandardErrorUnlessAsked) {
    SpdlogFixture fixture;
    SpdlogLogStore(std::nullopt).write(LogLevel::Error, "c", "m");
    EXPECT_TRUE(fixture.lines().empty());
}

} // namespace orvel::test
