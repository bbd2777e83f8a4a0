// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every log store: the fake and this system's.
#include "platform/LogStore.h"

#include "tests/platform/LogStoreCalls.h"
#include "tests/platform/RealLogStore.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <QCoreApplication>
#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvel::test {

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using testing::AnyOf;
using testing::ElementsAre;

struct RealFixture {
    /// A different one for each test, because some systems have one log for the whole process.
    std::string subsystem = "app.test" + std::to_string(++made);
    std::unique_ptr<LogStore> store = makeRealLogStore(subsystem);

    /// Waits until the clock's value has changed.
    static void letTimePass() {
        const auto reading = [] {
            return tavrin::Date(std::chrono::system_clock::now());
        };
        for (const tavrin::Date before = reading(); reading() <= before;) {
        }
    }

    static inline int made = 0;
};

struct RecordingFixture {
    std::string subsystem = "app.test";
    ManualClock clock;
    std::unique_ptr<LogStore> store = std::make_unique<RecordingLogStore>(clock);

    void letTimePass() { clock.advance(tavrin::Seconds(1)); }
};

using Fixtures = testing::Types<RealFixture, RecordingFixture>;
TYPED_TEST_SUITE(LogStoreTest, Fixtures);

using Strings = std::vector<std::string>;

} // namespace

TYPED_TEST(LogStoreTest, GivesBackLevelCategoryAndMessageInTheOrderOfWriting) {
    this->store().write(LogLevel::Info, "collector", "one");
    this->store().write(LogLevel::Info, "auth", "two {} %v");
    this->store().write(LogLevel::Default, "contacts", "");
    this->store().write(LogLevel::Error, "lifecycle", "\xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96");
    Strings lines;
    for (const LogEntry& entry : this->entries()) {
        lines.push_back(
            std::to_string(static_cast<int>(entry.level)) + " " + entry.category + ": " +
            entry.message);
    }
    EXPECT_EQ(
        lines,
        (Strings{
            "2 collector: one",
            "2 auth: two {} %v",
            "3 contacts: ",
            "4 lifecycle: \xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96"}));
}

TYPED_TEST(LogStoreTest, GivesBackAMessageOfSeveralLinesUnchanged) {
    this->store().write(LogLevel::Info, "auth", "one\ntwo\r\n\t\x1B[2J");
    EXPECT_EQ(this->messages(), Strings{"one\ntwo\r\n\t\x1B[2J"});
}

TYPED_TEST(LogStoreTest, ANulCharacterDoesNotEndAMessage) {
    this->store().write(LogLevel::Info, "auth", "one\0two"sv);
    EXPECT_THAT(this->messages(), ElementsAre(AnyOf("one\0two"s, "one\u2400two")));
}

TYPED_TEST(LogStoreTest, GivesBackWellFormedText) {
    this->store().write(LogLevel::Info, "a\xFF", "b\xE2\x80");
    const std::vector<LogEntry> entries = this->entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries.front().category, "a\xEF\xBF\xBD");
    EXPECT_EQ(entries.front().message, "b\xEF\xBF\xBD");
}

TYPED_TEST(LogStoreTest, ReadsEntriesFromADateOn) {
    for (const std::string_view message : {"one", "two", "three"}) {
        this->store().write(LogLevel::Info, "c", message);
        this->fixture_.letTimePass();
    }
    const std::vector<LogEntry> all = this->entries();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_LT(all[0].date, all[1].date);
    EXPECT_LT(all[1].date, all[2].date);
    EXPECT_EQ(this->messages(all[1].date), (Strings{"two", "three"}));
    EXPECT_EQ(this->messages(all[2].date), Strings{"three"});
    EXPECT_TRUE(this->messages(all[2].date + tavrin::Seconds(0.1)).empty());
    EXPECT_TRUE(this->messages(tavrin::Date::max()).empty());
    EXPECT_EQ(this->messages(tavrin::Date::min()).size(), 3U);
}

TYPED_TEST(LogStoreTest, AnswersOnceOnTheMainThreadAndNeverBeforeReturning) {
    int answers = 0;
    QThread* thread = nullptr;
    this->store().readEntries(this->longAgo, [&](const LogStore::Entries&) {
        ++answers;
        thread = QThread::currentThread();
    });
    EXPECT_EQ(answers, 0);
    waitFor([&answers] { return answers > 0; });
    EXPECT_EQ(thread, QCoreApplication::instance()->thread());
    // A second answer would arrive before this one.
    EXPECT_TRUE(this->entries().empty());
    EXPECT_EQ(answers, 1);
}

TYPED_TEST(LogStoreTest, AnswersReadsInCallOrder) {
    std::vector<int> order;
    for (int read = 0; read < 20; ++read) {
        this->store().readEntries(
            this->longAgo, [&order, read](const LogStore::Entries&) { order.push_back(read); });
    }
    waitFor([&order] { return order.size() == 20; });
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TYPED_TEST(LogStoreTest, ADestroyedStoreDoesNotAnswer) {
    const auto witness = std::make_shared<int>();
    bool isAnswered = false;
    this->store().readEntries(
        this->longAgo, [&isAnswered, witness](const LogStore::Entries&) { isAnswered = true; });
    this->fixture_.store.reset();
    EXPECT_EQ(witness.use_count(), 1);
    processEvents();
    EXPECT_FALSE(isAnswered);
}

TYPED_TEST(LogStoreTest, ACompletionMayDestroyTheStore) {
    bool isAnswered = false;
    this->store().readEntries(this->longAgo, [this, &isAnswered](const LogStore::Entries&) {
        this->fixture_.store.reset();
        isAnswered = true;
    });
    waitFor([&isAnswered] { return isAnswered; });
}

TYPED_TEST(LogStoreTest, KeepsTheLinesOfSeveralThreads) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 200;
    std::vector<std::thread> threads;
    for (int index = 0; index < threadCount; ++index) {
        threads.emplace_back([this, index] {
            const std::string message(100, static_cast<char>('a' + index));
            for (int line = 0; line < lineCount; ++line) {
                // No system may drop lines of this level soon.
                this->store().write(LogLevel::Error, "t", message);
            }
        });
    }
    EXPECT_LE(this->entries().size(), std::size_t{threadCount * lineCount});
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<LogEntry> entries = this->entries();
    EXPECT_EQ(entries.size(), std::size_t{threadCount * lineCount});
    EXPECT_TRUE(std::ranges::is_sorted(entries, {}, &LogEntry::date));
    for (int index = 0; index < threadCount; ++index) {
        const std::string expected(100, static_cast<char>('a' + index));
        EXPECT_EQ(std::ranges::count(entries, expected, &LogEntry::message), lineCount);
    }
}

} // namespace orvel::test
