// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/log/LogReader.h"

#include "tests/support/RunTask.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <QByteArray>
#include <QtGlobal>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::Date;
using tavrin::Seconds;
using Strings = std::vector<std::string>;

constexpr auto updater = "updater.test";

LogReader::Subsystems subsystems() {
    return {std::string(RecordingLogStore::subsystem), updater};
}

/// Sets the local time zone during its lifetime, in POSIX notation.
class TimeZone final {
public:
    explicit TimeZone(const char* zone)
        : former_(qgetenv("TZ")), wasSet_(qEnvironmentVariableIsSet("TZ")) {
        qputenv("TZ", zone);
        tzset();
    }
    ~TimeZone() {
        if (wasSet_) {
            qputenv("TZ", former_);
        } else {
            qunsetenv("TZ");
        }
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    QByteArray former_;
    bool wasSet_;
};

class LogReaderTest : public testing::Test {
protected:
    LogReaderTest() {
        QObject::connect(
            reader_.get(), &LogReader::changed, reader_.get(), [this](int inserted, int dropped) {
                changes_.emplace_back(inserted, dropped);
            });
    }

    /// Starts streaming and completes the first read.
    void start() {
        reader_->startStreaming();
        processEvents();
        changes_.clear();
    }

    /// Completes the next read.
    void refresh() {
        clock_.advance(LogReader::refreshInterval);
        processEvents();
    }

    void log(std::string_view message) { store_.write(LogLevel::Info, "c", message); }

    void append(std::string_view subsystem, std::string_view category, std::string_view message) {
        LogEntry entry;
        entry.date = clock_.now();
        entry.level = LogLevel::Info;
        entry.subsystem = subsystem;
        entry.category = category;
        entry.message = message;
        store_.append(std::move(entry));
    }

    /// Newest first.
    [[nodiscard]] Strings messages() const {
        Strings messages;
        for (const LogReader::Entry& entry : reader_->entries()) {
            messages.push_back(entry.message);
        }
        return messages;
    }

    Strings recentLines(std::chrono::minutes minutes) {
        return runTask(LogReader::recentLines(&store_, &clock_, subsystems(), minutes));
    }

    using Changes = std::vector<std::pair<int, int>>;

    TimeZone zone_{"UTC0"};
    ManualClock clock_;
    RecordingLogStore store_{clock_};
    Changes changes_;
    std::unique_ptr<LogReader> reader_ = std::make_unique<LogReader>(store_, clock_, subsystems());
};

} // namespace

TEST_F(LogReaderTest, ReadsNothingBeforeItIsStarted) {
    refresh();
    EXPECT_TRUE(store_.reads().empty());
    EXPECT_TRUE(reader_->entries().empty());
    EXPECT_FALSE(reader_->isStreaming());
    EXPECT_FALSE(reader_->failure());
    EXPECT_EQ(reader_->plainText(), "");
}

TEST_F(LogReaderTest, ReadsDateLevelCategoryAndMessage) {
    store_.write(LogLevel::Error, "collector", "scan failed");
    start();
    ASSERT_EQ(reader_->entries().size(), 1U);
    const LogReader::Entry& entry = reader_->entries().front();
    EXPECT_FALSE(entry.id.isNull());
    EXPECT_EQ(entry.date, clock_.now());
    EXPECT_EQ(entry.level, LogLevel::Error);
    EXPECT_EQ(entry.category, "collector");
    EXPECT_EQ(entry.message, "scan failed");
}

TEST_F(LogReaderTest, StartsFourHoursBack) {
    log("too old");
    clock_.advance(Seconds(0.5));
    log("just within");
    clock_.advance(Seconds(14'400));
    start();
    EXPECT_EQ(store_.reads(), std::vector<Date>{clock_.now() - Seconds(14'400)});
    EXPECT_EQ(messages(), Strings{"just within"});
}

TEST_F(LogReaderTest, ListsTheNewestFirst) {
    log("one");
    log("two");
    start();
    EXPECT_EQ(messages(), (Strings{"two", "one"}));
    refresh();
    log("three");
    log("four");
    refresh();
    EXPECT_EQ(messages(), (Strings{"four", "three", "two", "one"}));
}

TEST_F(LogReaderTest, ReadsEverySecondFromTheNewestEntry) {
    const Date begin = clock_.now();
    start();
    refresh();
    log("one");
    const Date one = clock_.now();
    refresh();
    refresh();
    EXPECT_EQ(
        store_.reads(),
        (std::vector<Date>{
            begin - LogReader::window,
            begin + Seconds(1) - LogReader::window,
            begin + Seconds(2) - LogReader::window,
            one}));
    clock_.advance(Seconds(0.9));
    processEvents();
    EXPECT_EQ(store_.reads().size(), 4U);
}

TEST_F(LogReaderTest, TheIntervalStartsWhenTheReadHasFinished) {
    store_.hold();
    reader_->startStreaming();
    clock_.advance(Seconds(10));
    processEvents();
    EXPECT_EQ(store_.reads().size(), 1U) << "only one read at a time";
    store_.answer();
    processEvents();
    clock_.advance(Seconds(0.9));
    EXPECT_EQ(store_.reads().size(), 1U);
    clock_.advance(Seconds(0.1));
    EXPECT_EQ(store_.reads().size(), 2U);
}

TEST_F(LogReaderTest, ListsAnEntryOnceIfItIsReadTwice) {
    log("one");
    start();
    log("two");
    refresh();
    refresh();
    EXPECT_EQ(messages(), (Strings{"two", "one"}));
}

TEST_F(LogReaderTest, DateCategoryAndMessageIdentifyAnEntry) {
    store_.write(LogLevel::Info, "a", "x");
    store_.write(LogLevel::Info, "a", "y");
    store_.write(LogLevel::Info, "b", "x");
    store_.write(LogLevel::Error, "a", "x");
    clock_.advance(Seconds(1e-6));
    store_.write(LogLevel::Info, "a", "x");
    start();
    EXPECT_EQ(messages(), (Strings{"x", "x", "y", "x"}));
}

TEST_F(LogReaderTest, EveryEntryHasAUniqueId) {
    log("one");
    log("two");
    start();
    EXPECT_NE(reader_->entries()[0].id, reader_->entries()[1].id);
    const QUuid one = reader_->entries()[1].id;
    log("three");
    refresh();
    EXPECT_EQ(reader_->entries()[2].id, one);
}

TEST_F(LogReaderTest, KeepsOnlyEntriesOfTheApplicationAndItsUpdater) {
    append("com.example.framework", "c", "another's");
    append("", "c", "nobody's");
    append(updater, "Sessions", "the updater's");
    log("ours");
    start();
    EXPECT_EQ(messages(), (Strings{"ours", "the updater's"}));
    EXPECT_EQ(reader_->entries()[0].category, "c");
    EXPECT_EQ(reader_->entries()[1].category, "update");
}

TEST_F(LogReaderTest, KeepsCategoriesIfTheApplicationHasNoIdentifier) {
    append("", "collector", "ours");
    LogReader reader(store_, clock_, {});
    reader.startStreaming();
    processEvents();
    ASSERT_EQ(reader.entries().size(), 1U);
    EXPECT_EQ(reader.entries().front().category, "collector");
}

TEST_F(LogReaderTest, KeepsTheNewestTwoThousand) {
    for (int line = 1; line <= 2'003; ++line) {
        log(std::to_string(line));
        clock_.advance(Seconds(0.001));
    }
    start();
    EXPECT_EQ(reader_->entries().size(), 2'000U);
    EXPECT_EQ(reader_->entries().front().message, "2003");
    EXPECT_EQ(reader_->entries().back().message, "4");
    refresh();
    EXPECT_EQ(reader_->entries().front().message, "2003");
    log("2004");
    refresh();
    EXPECT_EQ(reader_->entries().size(), 2'000U);
    EXPECT_EQ(reader_->entries().back().message, "5");
}

TEST_F(LogReaderTest, ForgetsTheKeysOfDroppedEntries) {
    LogEntry again;
    again.date = clock_.now();
    again.subsystem = RecordingLogStore::subsystem;
    again.message = "again";
    store_.append(again);
    start();
    clock_.advance(Seconds(0.5));
    for (int line = 0; line < 2'000; ++line) {
        log(std::to_string(line));
    }
    refresh();
    EXPECT_EQ(reader_->entries().back().message, "0");
    store_.append(again);
    refresh();
    EXPECT_EQ(reader_->entries().front().message, "again");
    EXPECT_EQ(reader_->entries().size(), 2'000U);
}

TEST_F(LogReaderTest, FollowsAClockThatIsSetBack) {
    log("before");
    start();
    LogEntry entry;
    entry.subsystem = RecordingLogStore::subsystem;
    entry.date = clock_.now() - Seconds(3'600);
    entry.message = "after";
    store_.append(entry);
    refresh();
    EXPECT_EQ(messages(), (Strings{"after", "before"}));
    entry.date += Seconds(1);
    entry.message = "later";
    store_.append(entry);
    refresh();
    EXPECT_EQ(messages(), (Strings{"later", "after", "before"}));
}

TEST_F(LogReaderTest, ReportsInsertedAndDroppedCounts) {
    start();
    log("one");
    log("two");
    refresh();
    EXPECT_EQ(changes_, (Changes{{2, 0}}));
    changes_.clear();
    for (int line = 0; line < 1'999; ++line) {
        log(std::to_string(line));
    }
    refresh();
    EXPECT_EQ(changes_, (Changes{{1'999, 1}}));
    changes_.clear();
    clock_.advance(Seconds(0.5));
    for (int line = 0; line < 2'500; ++line) {
        log(std::to_string(line));
    }
    refresh();
    EXPECT_EQ(changes_, (Changes{{2'000, 2'000}}))
        << "entries dropped in the same batch are not counted";
}

TEST_F(LogReaderTest, EmitsNothingWithoutNewEntries) {
    log("one");
    start();
    refresh();
    refresh();
    EXPECT_TRUE(changes_.empty());
}

TEST_F(LogReaderTest, AFailedReadKeepsTheEntriesAndIsRetried) {
    log("one");
    start();
    store_.readError = tavrin::PlatformError::fromErrno(EIO, "Could not read the log");
    log("two");
    refresh();
    EXPECT_EQ(reader_->failure(), "Could not read the log: Input/output error");
    EXPECT_EQ(messages(), Strings{"one"});
    EXPECT_TRUE(reader_->isStreaming());
    refresh();
    EXPECT_EQ(changes_, (Changes{{0, 0}})) << "an unchanged failure emits nothing";
    changes_.clear();
    store_.readError.reset();
    refresh();
    EXPECT_FALSE(reader_->failure());
    EXPECT_EQ(messages(), (Strings{"two", "one"}));
    EXPECT_EQ(changes_, (Changes{{1, 0}}));
}

TEST_F(LogReaderTest, EmitsChangedWhenAFailureClears) {
    store_.readError = tavrin::PlatformError::fromErrno(EIO, "Could not read the log");
    start();
    store_.readError.reset();
    refresh();
    EXPECT_FALSE(reader_->failure());
    EXPECT_EQ(changes_, (Changes{{0, 0}}));
}

TEST_F(LogReaderTest, StartingTwiceReadsOnce) {
    reader_->startStreaming();
    reader_->startStreaming();
    EXPECT_TRUE(reader_->isStreaming());
    EXPECT_EQ(changes_, (Changes{{0, 0}}));
    processEvents();
    refresh();
    EXPECT_EQ(store_.reads().size(), 2U);
}

TEST_F(LogReaderTest, StoppingKeepsTheEntries) {
    log("one");
    start();
    reader_->stopStreaming();
    EXPECT_FALSE(reader_->isStreaming());
    EXPECT_EQ(changes_, (Changes{{0, 0}}));
    EXPECT_FALSE(clock_.untilNextTimer());
    reader_->stopStreaming();
    EXPECT_EQ(changes_.size(), 1U);
    log("two");
    refresh();
    EXPECT_EQ(messages(), Strings{"one"});
    start();
    EXPECT_EQ(messages(), (Strings{"two", "one"}));
}

TEST_F(LogReaderTest, StoppingDropsTheRunningRead) {
    log("one");
    store_.hold();
    reader_->startStreaming();
    reader_->stopStreaming();
    store_.answer();
    processEvents();
    EXPECT_TRUE(reader_->entries().empty());
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(LogReaderTest, MayBeDestroyedWhileItReads) {
    store_.hold();
    reader_->startStreaming();
    reader_.reset();
    store_.answer();
    processEvents();
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(LogReaderTest, MayBeDestroyedWhileItWaits) {
    start();
    EXPECT_TRUE(clock_.untilNextTimer());
    reader_.reset();
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(LogReaderTest, ASlotMayDestroyTheReader) {
    for (const bool fails : {false, true}) {
        auto reader = std::make_unique<LogReader>(store_, clock_, subsystems());
        log("one");
        if (fails) {
            store_.readError = tavrin::PlatformError::fromErrno(EIO, "Could not read the log");
        }
        reader->startStreaming();
        QObject context;
        QObject::connect(
            reader.get(), &LogReader::changed, &context, [&reader] { reader.reset(); });
        processEvents();
        EXPECT_EQ(reader, nullptr);
        EXPECT_FALSE(clock_.untilNextTimer());
    }
}

TEST_F(LogReaderTest, ASlotMayStopAndStartAgain) {
    log("one");
    reader_->startStreaming();
    QObject context;
    QObject::connect(reader_.get(), &LogReader::changed, &context, [this](int inserted) {
        if (inserted > 0) {
            reader_->stopStreaming();
            reader_->startStreaming();
        }
    });
    processEvents();
    EXPECT_TRUE(reader_->isStreaming());
    EXPECT_EQ(store_.reads().size(), 2U);
    refresh();
    EXPECT_EQ(store_.reads().size(), 3U) << "only one stream continues";
}

TEST_F(LogReaderTest, StopsAndReportsWhyIfNoTimerCanBeSet) {
    class BrokenClock final : public Clock {
    public:
        [[nodiscard]] Date now() const override { return {}; }
        [[nodiscard]] Seconds uptime() const override { return {}; }
        [[nodiscard]] std::unique_ptr<Timer> schedule(Seconds, std::function<void()>) override {
            throw tavrin::PlatformError::fromErrno(EMFILE, "Could not make a timer");
        }
    };
    BrokenClock clock;
    LogReader reader(store_, clock, subsystems());
    reader.startStreaming();
    processEvents();
    EXPECT_FALSE(reader.isStreaming());
    EXPECT_EQ(reader.failure(), "Could not make a timer: Too many open files");
}

TEST_F(LogReaderTest, PlainTextListsOldestFirst) {
    store_.write(LogLevel::Info, "collector", "one");
    clock_.advance(Seconds(1));
    store_.write(LogLevel::Error, "auth", "two\nlines");
    start();
    EXPECT_EQ(
        reader_->plainText(),
        "2024-03-09 17:05:42  [collector] info  one\n"
        "2024-03-09 17:05:43  [auth] ERROR  two\nlines");
}

TEST_F(LogReaderTest, PlainTextHasAWordForEveryLevel) {
    for (const int level : {0, 1, 2, 3, 4, 5, 6}) {
        LogEntry entry;
        entry.date = clock_.now();
        entry.level = LogLevel{level};
        entry.subsystem = RecordingLogStore::subsystem;
        entry.message = std::to_string(level);
        store_.append(std::move(entry));
    }
    start();
    EXPECT_EQ(
        reader_->plainText(),
        "2024-03-09 17:05:42  [] info  0\n"
        "2024-03-09 17:05:42  [] debug  1\n"
        "2024-03-09 17:05:42  [] info  2\n"
        "2024-03-09 17:05:42  [] info  3\n"
        "2024-03-09 17:05:42  [] ERROR  4\n"
        "2024-03-09 17:05:42  [] FAULT  5\n"
        "2024-03-09 17:05:42  [] info  6");
}

TEST_F(LogReaderTest, PlainTextFollowsTheLocalTimeZone) {
    clock_.advance(Seconds(0.999));
    log("x");
    start();
    const TimeZone east("EAST-05:30");
    EXPECT_EQ(reader_->plainText(), "2024-03-09 22:35:42  [c] info  x");
    const TimeZone west("WEST+18");
    EXPECT_EQ(reader_->plainText(), "2024-03-08 23:05:42  [c] info  x");
}

TEST_F(LogReaderTest, RecentLinesCoverTheLastMinutes) {
    log("too old");
    clock_.advance(Seconds(0.5));
    store_.write(LogLevel::Error, "collector", "one");
    clock_.advance(Seconds(1'200));
    append(updater, "Sessions", "two");
    append("com.example.framework", "c", "another's");
    EXPECT_EQ(
        recentLines(std::chrono::minutes(20)),
        (Strings{"2024-03-09 17:05:42  [collector] one", "2024-03-09 17:25:42  [Sessions] two"}));
    EXPECT_EQ(store_.reads(), std::vector<Date>{clock_.now() - Seconds(1'200)});
    const TimeZone east("EAST-05:30");
    EXPECT_EQ(recentLines(std::chrono::minutes(1)), Strings{"2024-03-09 22:55:42  [Sessions] two"});
}

TEST_F(LogReaderTest, RecentLinesAreEmptyIfTheLogCannotBeRead) {
    log("one");
    store_.readError = tavrin::PlatformError::fromErrno(EIO, "Could not read the log");
    EXPECT_TRUE(recentLines(std::chrono::minutes(20)).empty());
}

TEST_F(LogReaderTest, RecentLinesAreDroppedWhenCancelled) {
    store_.hold();
    tavrin::CancellationSource source;
    auto lines = LogReader::recentLines(
        &store_, &clock_, subsystems(), std::chrono::minutes(20), source.token());
    EXPECT_FALSE(lines.isReady());
    source.cancel();
    EXPECT_THROW(runTask(std::move(lines)), tavrin::TaskCancelled);
    store_.answer();
    processEvents();
}

} // namespace orvel::test
