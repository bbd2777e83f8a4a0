// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/SpdlogLogStore.h"

#include "core/FileDescriptor.h"
#include "core/Text.h"
#include "tests/platform/LogStoreCalls.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

/// Redirects the process's standard error to a file until destroyed.
class StandardErrorToFile final {
public:
    explicit StandardErrorToFile(const std::filesystem::path& file)
        : original_(dup(STDERR_FILENO)) {
        const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(descriptor, STDERR_FILENO);
        close(descriptor);
    }
    ~StandardErrorToFile() {
        dup2(original_, STDERR_FILENO);
        close(original_);
    }
    StandardErrorToFile(const StandardErrorToFile&) = delete;
    StandardErrorToFile& operator=(const StandardErrorToFile&) = delete;

private:
    int original_;
};

/// A store without a journal, with standard error redirected to a file.
struct SpdlogFixture {
    std::string subsystem = "app.test";
    TemporaryDirectory folder;
    StandardErrorToFile redirection{folder / "log"};
    std::unique_ptr<LogStore> store = makeStore(LogLevel::Debug);

    [[nodiscard]] std::unique_ptr<LogStore> makeStore(std::optional<LogLevel> level) const {
        return std::make_unique<SpdlogLogStore>(
            SpdlogLogStore::Options{"app.test", level, folder / "journal"});
    }

    std::vector<std::string> rawLines() {
        std::vector<std::string> lines;
        std::ifstream file(folder / "log");
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    /// The lines on standard error as "level category: message", without their time.
    std::vector<std::string> lines() {
        std::vector<std::string> lines = rawLines();
        for (std::string& line : lines) {
            line.erase(0, line.find(' ') + 1);
        }
        return lines;
    }
};

using Strings = std::vector<std::string>;

using SpdlogLogStoreTest = LogStoreTest<SpdlogFixture>;

/// A fake journal.
class Journal final {
public:
    using Fields = std::map<std::string, std::string>;

    explicit Journal(const std::filesystem::path& path)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.native().copy(&address.sun_path[0], sizeof address.sun_path - 1);
        if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::system_error(errno, std::generic_category(), path.native());
        }
    }

    /// The next entry without the program's name, or no value if no entry is waiting.
    std::optional<Fields> receive() {
        std::string entry(std::size_t{1} << 20U, '\0');
        const ssize_t length = recv(socket_.get(), entry.data(), entry.size(), MSG_DONTWAIT);
        if (length < 0) {
            return std::nullopt;
        }
        entry.resize(static_cast<std::size_t>(length));
        Fields fields = parse(entry);
        EXPECT_EQ(fields["SYSLOG_IDENTIFIER"], program_invocation_short_name);
        fields.erase("SYSLOG_IDENTIFIER");
        return fields;
    }

private:
    /// A field is: name, line feed, length (64 bits, little-endian), value, line feed.
    static Fields parse(std::string_view entry) {
        Fields fields;
        while (!entry.empty()) {
            const std::size_t nameLength = entry.find('\n');
            std::uint64_t length = 0;
            for (std::size_t byte = 8; byte > 0; --byte) {
                length = length << 8U | static_cast<unsigned char>(entry.at(nameLength + byte));
            }
            const std::size_t value = nameLength + 1 + 8;
            EXPECT_EQ(entry.at(value + length), '\n');
            fields.emplace(entry.substr(0, nameLength), entry.substr(value, length));
            entry.remove_prefix(value + length + 1);
        }
        return fields;
    }

    tavrin::FileDescriptor socket_;
};

} // namespace

TEST_F(SpdlogLogStoreTest, KeepsTheNewestLinesOnly) {
    constexpr int excess = 10;
    constexpr int last = static_cast<int>(SpdlogLogStore::maximumLines) + excess;
    for (int line = 1; line <= last; ++line) {
        store().write(LogLevel::Info, "c", std::to_string(line));
    }
    const Strings kept = messages();
    EXPECT_EQ(kept.size(), SpdlogLogStore::maximumLines);
    EXPECT_EQ(kept.front(), std::to_string(excess + 1));
    EXPECT_EQ(kept.back(), std::to_string(last));
}

TEST_F(SpdlogLogStoreTest, KeepsANulCharacter) {
    const std::string message("one\0two", 7);
    store().write(LogLevel::Info, "c", message);
    EXPECT_EQ(messages(), Strings{message});
}

TEST_F(SpdlogLogStoreTest, KeepsABoundedNumberOfBytes) {
    constexpr std::size_t bytesPerLine = SpdlogLogStore::maximumTextBytes;
    const std::string message(bytesPerLine - 1, 'x');
    for (std::size_t line = 0; line < SpdlogLogStore::maximumBytes / bytesPerLine + 10; ++line) {
        store().write(LogLevel::Info, "c", message);
    }
    EXPECT_EQ(entries().size(), SpdlogLogStore::maximumBytes / bytesPerLine);
    store().write(LogLevel::Info, std::string(bytesPerLine + 1, 'c'), message);
    EXPECT_EQ(entries().size(), SpdlogLogStore::maximumBytes / bytesPerLine - 1)
        << "the category counts, too";
}

TEST_F(SpdlogLogStoreTest, TruncatesALongMessageBetweenTwoCharacters) {
    constexpr std::size_t limit = SpdlogLogStore::maximumTextBytes;
    for (std::size_t prefixLength = 0; prefixLength < 4; ++prefixLength) {
        std::string message(prefixLength, 'x');
        while (message.size() <= limit) {
            message += "\xF0\x9F\x8F\x96";
        }
        store().write(LogLevel::Info, "c", message);
        const std::string kept = messages().back();
        EXPECT_LE(kept.size(), limit);
        EXPECT_GT(kept.size(), limit - 4);
        EXPECT_TRUE(tavrin::isValidUTF8(kept));
        EXPECT_TRUE(message.starts_with(kept.substr(0, kept.size() - 3)));
        EXPECT_TRUE(kept.ends_with("\u2026"));
        EXPECT_TRUE(fixture_.lines().back().ends_with("\u2026"));
    }
    const std::string longest(limit, 'x');
    store().write(LogLevel::Info, "c", longest);
    EXPECT_EQ(messages().back(), longest);
    store().write(LogLevel::Info, "c", std::string(limit + 1, '\x80'));
    EXPECT_EQ(messages().back(), "\u2026") << "the text contains no first byte of a character";
}

TEST_F(SpdlogLogStoreTest, GivesEntriesTheTimeOfWriting) {
    const tavrin::Date before = std::chrono::system_clock::now();
    store().write(LogLevel::Info, "c", "x");
    const tavrin::Date after = std::chrono::system_clock::now();
    const tavrin::Date date = entries().front().date;
    EXPECT_GE(date, before);
    EXPECT_LE(date, after);
}

TEST_F(SpdlogLogStoreTest, WritesLevelCategoryAndMessageToStandardError) {
    store().write(LogLevel::Debug, "collector", "one");
    store().write(LogLevel::Info, "auth", "two {} %v");
    store().write(LogLevel::Default, "contacts", "");
    store().write(LogLevel::Error, "lifecycle", "\xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96");
    EXPECT_EQ(
        fixture_.lines(),
        (Strings{
            "debug collector: one",
            "info auth: two {} %v",
            "default contacts: ",
            "error lifecycle: \xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96"}));
}

TEST_F(SpdlogLogStoreTest, LinesOfSeveralThreadsStayWholeOnStandardError) {
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([this, letter] {
            for (int line = 0; line < 200; ++line) {
                store().write(LogLevel::Info, "t", std::string(100, letter));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const Strings lines = fixture_.lines();
    EXPECT_EQ(lines.size(), 800U);
    for (const char letter : {'a', 'b', 'c', 'd'}) {
        EXPECT_EQ(std::ranges::count(lines, "info t: " + std::string(100, letter)), 200);
    }
}

TEST_F(SpdlogLogStoreTest, StartsEachLineOnStandardErrorWithItsTime) {
    store().write(LogLevel::Info, "auth", "x");
    EXPECT_THAT(
        fixture_.rawLines(),
        testing::ElementsAre(testing::MatchesRegex(
            "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2} "
            "info auth: x")));
}

TEST_F(SpdlogLogStoreTest, EscapesLineBreaksAndTerminalControls) {
    store().write(
        LogLevel::Info,
        "a\nb",
        std::string_view(
            "\n\r\t\0\x1B[2J\x7F|\xC2\x85\xC2\xA0|\xE2\x80\xA8\xE2\x80\xA9\xE2\x80", 23));
    EXPECT_EQ(
        fixture_.lines(),
        (Strings{"info a\\nb: \\n\\x0d\\x09\\x00\\x1b[2J\\x7f|\\xc2\\x85\xC2\xA0|"
                 "\\xe2\\x80\\xa8\\xe2\\x80\\xa9\xEF\xBF\xBD"}));
}

TEST_F(SpdlogLogStoreTest, KeepsLowerLevelsInMemoryOnly) {
    fixture_.store = fixture_.makeStore(LogLevel::Default);
    for (const LogLevel level :
         {LogLevel::Debug, LogLevel::Info, LogLevel::Default, LogLevel::Error}) {
        store().write(level, "c", "m");
    }
    EXPECT_EQ(fixture_.lines(), (Strings{"default c: m", "error c: m"}));
    EXPECT_EQ(entries().size(), 4U);
}

TEST_F(SpdlogLogStoreTest, WritesNothingToStandardErrorUnlessAsked) {
    fixture_.store = fixture_.makeStore(std::nullopt);
    store().write(LogLevel::Error, "c", "m");
    EXPECT_TRUE(fixture_.lines().empty());
}

/// Redirects the process's standard error to a descriptor until destroyed.
class StandardErrorTo final {
public:
    explicit StandardErrorTo(int descriptor) : original_(dup(STDERR_FILENO)) {
        dup2(descriptor, STDERR_FILENO);
    }
    ~StandardErrorTo() {
        dup2(original_, STDERR_FILENO);
        close(original_);
    }
    StandardErrorTo(const StandardErrorTo&) = delete;
    StandardErrorTo& operator=(const StandardErrorTo&) = delete;

private:
    int original_;
};

/// Writes that many lines on another thread. Returns whether that takes less than five seconds
/// while nothing is read. Otherwise reads until the thread ends.
bool writesWithoutWaiting(LogStore& store, int lines, const std::function<void()>& read) {
    std::promise<void> written;
    const std::future<void> end = written.get_future();
    const std::jthread thread([&] {
        for (int line = 0; line < lines; ++line) {
            store.write(LogLevel::Info, "c", "line " + std::to_string(line));
        }
        written.set_value();
    });
    if (end.wait_for(std::chrono::seconds(20)) == std::future_status::ready) {
        return true;
    }
    while (end.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        read();
    }
    return false;
}

/// Until nothing comes for half a second.
std::string readAvailable(int descriptor) {
    constexpr int silence = 500;
    std::string all;
    std::string part(1 << 16, '\0');
    pollfd readable{descriptor, POLLIN, 0};
    while (poll(&readable, 1, silence) == 1 && (readable.revents & POLLIN) != 0) {
        const ssize_t count = read(descriptor, part.data(), part.size());
        if (count <= 0) {
            break;
        }
        all.append(part, 0, static_cast<std::size_t>(count));
    }
    return all;
}

TEST_F(SpdlogLogStoreTest, AStoppedTerminalDoesNotBlock) {
    const tavrin::FileDescriptor user(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(grantpt(user.get()), 0);
    ASSERT_EQ(unlockpt(user.get()), 0);
    const tavrin::FileDescriptor terminal(open(ptsname(user.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(terminal.isOpen());
    const StandardErrorTo redirection(terminal.get());
    fixture_.store = fixture_.makeStore(LogLevel::Debug);
    store().write(LogLevel::Info, "c", "before");
    // What Ctrl+S does.
    ASSERT_EQ(tcflow(terminal.get(), TCOOFF), 0);
    std::string seen;
    const auto resume = [&] {
        ASSERT_EQ(tcflow(terminal.get(), TCOON), 0);
        seen += readAvailable(user.get());
    };
    EXPECT_TRUE(writesWithoutWaiting(store(), 1'000, resume));
    resume();
    store().write(LogLevel::Info, "c", "after");
    seen += readAvailable(user.get());
    EXPECT_THAT(seen, testing::HasSubstr("info c: before\r\n"));
    EXPECT_THAT(seen, testing::EndsWith("info c: after\r\n"));
    EXPECT_EQ(entries().size(), 1'002U);
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0) << "other processes share the flags";
}

TEST_F(SpdlogLogStoreTest, AFullPipeDoesNotBlockAndItsLinesStayWhole) {
    std::array<int, 2> ends{};
    for (const bool isSocket : {false, true}) {
        ASSERT_EQ(
            isSocket ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data())
                     : pipe2(ends.data(), O_CLOEXEC),
            0);
        const tavrin::FileDescriptor reading(ends[0]);
        const tavrin::FileDescriptor writing(ends[1]);
        std::string seen;
        {
            const StandardErrorTo redirection(writing.get());
            fixture_.store = fixture_.makeStore(LogLevel::Debug);
            const auto readAll = [&] {
                seen += readAvailable(reading.get());
            };
            EXPECT_TRUE(writesWithoutWaiting(store(), 5'000, readAll));
            readAll();
            store().write(LogLevel::Info, "c", "after");
            seen += readAvailable(reading.get());
            EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
        }
        std::istringstream lines(seen);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_THAT(line, testing::MatchesRegex("[^ ]+ info c: (line [0-9]+|after)"));
        }
        EXPECT_THAT(seen, testing::EndsWith("info c: after\n"));
    }
}

TEST_F(SpdlogLogStoreTest, SendsLevelCategoryAndMessageToTheJournal) {
    Journal journal(fixture_.folder / "journal");
    const std::vector<std::pair<LogLevel, std::string>> priorities = {
        {LogLevel::Debug, "7"},
        {LogLevel::Info, "6"},
        {LogLevel::Default, "5"},
        {LogLevel::Error, "3"}};
    for (const auto& [level, priority] : priorities) {
        store().write(level, "collector", "a=b");
        EXPECT_EQ(
            journal.receive(),
            (Journal::Fields{
                {"MESSAGE", "a=b"},
                {"PRIORITY", priority},
                {"SUBSYSTEM", "app.test"},
                {"CATEGORY", "collector"}}));
    }
    EXPECT_EQ(journal.receive(), std::nullopt);
}

TEST_F(SpdlogLogStoreTest, AMessageCannotChangeOtherJournalFields) {
    Journal journal(fixture_.folder / "journal");
    store().write(LogLevel::Info, "a\nb", "c\nPRIORITY=0\n\xFF\n");
    Journal::Fields fields = journal.receive().value();
    EXPECT_EQ(fields.size(), 4U);
    EXPECT_EQ(fields["MESSAGE"], "c\\nPRIORITY=0\\n\xEF\xBF\xBD\\n");
    EXPECT_EQ(fields["CATEGORY"], "a\\nb");
    EXPECT_EQ(fields["PRIORITY"], "6");
    store().write(LogLevel::Info, "", std::string(SpdlogLogStore::maximumTextBytes, '\n'));
    EXPECT_EQ(journal.receive().value()["MESSAGE"].size(), 2 * SpdlogLogStore::maximumTextBytes);
}

TEST_F(SpdlogLogStoreTest, AFullJournalDoesNotBlockOrDelayOtherOutputs) {
    Journal journal(fixture_.folder / "journal");
    constexpr std::size_t count = SpdlogLogStore::maximumLines;
    for (std::size_t line = 0; line < count; ++line) {
        store().write(LogLevel::Info, "c", std::string(1'000, 'x'));
    }
    EXPECT_EQ(entries().size(), count);
    EXPECT_EQ(fixture_.lines().size(), count);
    std::size_t received = 0;
    while (journal.receive()) {
        ++received;
    }
    EXPECT_GT(received, 0U);
    EXPECT_LT(received, count);
    store().write(LogLevel::Info, "c", "again");
    EXPECT_EQ(journal.receive().value()["MESSAGE"], "again");
}

TEST_F(SpdlogLogStoreTest, FindsAJournalThatStartsLateOrRestarts) {
    store().write(LogLevel::Info, "c", "one");
    for (const std::string_view message : {"two", "three"}) {
        {
            Journal journal(fixture_.folder / "journal");
            store().write(LogLevel::Info, "c", message);
            EXPECT_EQ(journal.receive().value()["MESSAGE"], message);
        }
        store().write(LogLevel::Info, "c", "without a journal");
        std::filesystem::remove(fixture_.folder / "journal");
    }
    EXPECT_EQ(entries().size(), 5U);
}

TEST_F(SpdlogLogStoreTest, IgnoresAJournalPathTooLongForASocket) {
    SpdlogLogStore store({"app.test", std::nullopt, std::string(200, 'x')});
    store.write(LogLevel::Info, "c", "m");
    SpdlogLogStore withoutPath({"app.test", std::nullopt, {}});
    withoutPath.write(LogLevel::Info, "c", "m");
}

TEST_F(SpdlogLogStoreTest, EscapesBidirectionalControls) {
    store().write(LogLevel::Info, "c", "a\u202Eb\u2066c\u200Ed\u061C\u200D");
    EXPECT_EQ(
        fixture_.lines(),
        (Strings{"info c: a\\xe2\\x80\\xaeb\\xe2\\x81\\xa6c\\xe2\\x80\\x8ed\\xd8\\x9c\u200D"}));
}

} // namespace orvel::test
