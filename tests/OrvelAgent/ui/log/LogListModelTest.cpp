// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogListModel.h"

#include "tests/OrvelAgent/ui/log/LogFixture.h"

#include <QDateTime>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Strings = std::vector<std::string>;

class LogListModelTest : public LogFixture {
protected:
    LogListModelTest() { reader_.startStreaming(); }

    [[nodiscard]] std::string message(int row) const {
        return model_.row(row).message.toStdString();
    }

    [[nodiscard]] Strings messages() const {
        Strings messages;
        for (int row = 0; row < model_.rowCount(); ++row) {
            messages.push_back(message(row));
        }
        return messages;
    }

    [[nodiscard]] std::uint64_t number(int row) const { return model_.row(row).number; }

    LogReader reader_{store_, clock_, subsystems()};
    LogListModel model_{reader_};
};

} // namespace

TEST_F(LogListModelTest, ListsNewestFirst) {
    logLines(3);
    refresh();
    log("4");
    refresh();
    EXPECT_EQ(messages(), (Strings{"4", "3", "2", "1"}));
}

TEST_F(LogListModelTest, ListsExistingEntries) {
    logLines(3);
    refresh();
    EXPECT_EQ(LogListModel(reader_).rowCount(), 3);
}

TEST_F(LogListModelTest, ReturnsTimeCategoryAndMessage) {
    log("scanned 5");
    const QString time =
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(clock_.now().time_since_epoch().count()))
            .toString(QStringLiteral("HH:mm:ss"));
    refresh();
    EXPECT_EQ(model_.row(0).time.toStdString(), time.toStdString());
    EXPECT_EQ(model_.row(0).category.toStdString(), "collector");
    EXPECT_EQ(message(0), "scanned 5");
}

TEST_F(LogListModelTest, AnEntryIsAlwaysOneLine) {
    log("a\nb\r\nc\td\xe2\x80\xa8"
        "e\xe2\x80\xa9"
        "f");
    refresh();
    EXPECT_EQ(message(0), "a b  c d e f");
}

TEST_F(LogListModelTest, ErrorsAndFaultsAreProblems) {
    for (const int level : {0, 1, 2, 3, 4, 5}) {
        LogEntry entry;
        entry.date = clock_.now();
        entry.level = LogLevel{level};
        entry.subsystem = RecordingLogStore::subsystem;
        entry.message = std::to_string(level);
        store_.append(entry);
    }
    refresh();
    model_.setProblemsOnly(true);
    EXPECT_EQ(messages(), (Strings{"5", "4"}));
    EXPECT_TRUE(model_.row(0).isProblem);
    model_.setProblemsOnly(false);
    EXPECT_EQ(messages(), (Strings{"5", "4", "3", "2", "1", "0"}));
    EXPECT_FALSE(model_.row(2).isProblem);
}

TEST_F(LogListModelTest, NewEntriesAreFilteredToo) {
    model_.setProblemsOnly(true);
    log("fine");
    log("bad", LogLevel::Error);
    log("fine again");
    refresh();
    EXPECT_EQ(messages(), Strings{"bad"});
}

TEST_F(LogListModelTest, KeepsTheNewest2000) {
    logLines(2'000);
    refresh();
    log("new");
    refresh();
    EXPECT_EQ(model_.rowCount(), 2'000);
    EXPECT_EQ(message(0), "new");
    EXPECT_EQ(message(1'999), "2");
}

TEST_F(LogListModelTest, AllEntriesCanBeReplacedAtOnce) {
    logLines(10);
    refresh();
    logLines(3'000);
    refresh();
    EXPECT_EQ(model_.rowCount(), 2'000);
    EXPECT_EQ(message(0), "3000");
    EXPECT_EQ(message(1'999), "1001");
}

TEST_F(LogListModelTest, ADroppedEntryLeavesTheFilteredList) {
    model_.setProblemsOnly(true);
    log("old", LogLevel::Error);
    logLines(1'999);
    log("middle", LogLevel::Error);
    refresh();
    EXPECT_EQ(messages(), (Strings{"middle"}));
    log("new", LogLevel::Error);
    logLines(1'998);
    refresh();
    EXPECT_EQ(messages(), (Strings{"new", "middle"}));
    logLines(1);
    refresh();
    EXPECT_EQ(messages(), Strings{"new"});
}

TEST_F(LogListModelTest, NumbersIncreaseAndStayWithTheirEntries) {
    logLines(3);
    refresh();
    const std::uint64_t third = number(0);
    EXPECT_GT(third, number(1));
    log("bad", LogLevel::Error);
    refresh();
    EXPECT_EQ(number(1), third);
    model_.setProblemsOnly(true);
    EXPECT_GT(number(0), third);
}

TEST_F(LogListModelTest, FindsTheRowOfAnEntryOrOfTheNextOlderOne) {
    log("a", LogLevel::Error);
    log("b");
    log("c", LogLevel::Error);
    refresh();
    const std::uint64_t a = number(2);
    const std::uint64_t b = number(1);
    EXPECT_EQ(model_.rowAt(b), 1);
    model_.setProblemsOnly(true);
    EXPECT_EQ(model_.rowAt(b), 1);
    EXPECT_EQ(model_.rowAt(a), 1);
    EXPECT_EQ(model_.rowAt(a - 1), 2);
    EXPECT_EQ(model_.rowAt(b + 7), 0);
}

} // namespace orvel::test
