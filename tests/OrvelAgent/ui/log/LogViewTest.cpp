// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogView.h"

#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/log/LogListModel.h"
#include "tests/OrvelAgent/ui/log/LogFixture.h"
#include "tests/support/widgets/Palettes.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace orvel::test {

namespace {

class LogViewTest : public LogFixture {
protected:
    LogViewTest() {
        reader_.startStreaming();
        view_.resize(600, 300);
        view_.show();
        processEvents();
    }

    [[nodiscard]] QStringList lines() const {
        return view_.toPlainText().split(u'\n', Qt::SkipEmptyParts);
    }

    /// The message at the top of the view.
    [[nodiscard]] std::string top() const {
        const QTextBlock block =
            view_.document()->findBlockByNumber(view_.verticalScrollBar()->value());
        return block.text().section(u'\t', 2).toStdString();
    }

    void scrollTo(int row) { view_.verticalScrollBar()->setValue(row); }

    [[nodiscard]] QTextBlock line(int row) const {
        return view_.document()->findBlockByNumber(row);
    }

    /// The colour of the text after that many tabs.
    [[nodiscard]] QColor colorOf(int row, int column) const {
        int position = 0;
        for (int passed = 0; passed < column; ++passed) {
            position = static_cast<int>(line(row).text().indexOf(u'\t', position)) + 1;
        }
        QTextCursor cursor(line(row));
        cursor.setPosition(line(row).position() + position + 1);
        return cursor.charFormat().foreground().color();
    }

    LogReader reader_{store_, clock_, subsystems()};
    LogListModel model_{reader_};
    LogView view_{model_};
};

} // namespace

TEST_F(LogViewTest, ShowsOneLinePerEntryNewestFirst) {
    log("one");
    log("two\nlines");
    refresh();
    ASSERT_EQ(lines().size(), 2);
    EXPECT_TRUE(lines()[0].endsWith(QStringLiteral("\tcollector\ttwo lines")));
    EXPECT_TRUE(lines()[1].endsWith(QStringLiteral("\tcollector\tone")));
}

TEST_F(LogViewTest, ShowsMarkupAsPlainText) {
    log("<b>bold</b> <img src='/dev/null'> &amp;");
    refresh();
    ASSERT_EQ(lines().size(), 1);
    EXPECT_TRUE(lines()[0].endsWith(
        QStringLiteral("\tcollector\t<b>bold</b> <img src='/dev/null'> &amp;")));
}

TEST_F(LogViewTest, ShowsExistingEntries) {
    logLines(3);
    refresh();
    EXPECT_EQ(LogView(model_).toPlainText(), view_.toPlainText());
}

TEST_F(LogViewTest, FollowsInsertionsAndRemovalsInTheModel) {
    for (const int count : {1, 1'200, 900, 3, 2'500}) {
        logLines(count);
        refresh();
        ASSERT_EQ(view_.document()->blockCount(), model_.rowCount());
        for (int row = 0; row < model_.rowCount(); ++row) {
            ASSERT_EQ(line(row).text().section(u'\t', 2), model_.row(row).message);
        }
    }
}

TEST_F(LogViewTest, CanRemoveTheLastRow) {
    model_.setProblemsOnly(true);
    log("bad", LogLevel::Error);
    refresh();
    logLines(2'000);
    refresh();
    EXPECT_EQ(view_.toPlainText(), QString());
    log("worse", LogLevel::Error);
    refresh();
    ASSERT_EQ(lines().size(), 1);
    EXPECT_TRUE(lines()[0].endsWith(QStringLiteral("\tworse")));
}

TEST_F(LogViewTest, ProblemsAreRedAndTimesAreSecondary) {
    log("bad", LogLevel::Error);
    log("fine");
    refresh();
    const QPalette palette = QApplication::palette();
    EXPECT_EQ(colorOf(0, 0), Theme::colorOnBase(Theme::Role::Secondary, palette));
    EXPECT_EQ(colorOf(0, 2), Theme::colorOnBase(Theme::Role::Primary, palette));
    EXPECT_EQ(colorOf(1, 0), Theme::colorOnBase(Theme::Role::Secondary, palette));
    EXPECT_EQ(colorOf(1, 1), Theme::colorOnBase(Theme::Role::Primary, palette));
    EXPECT_EQ(colorOf(1, 2), Theme::colorOnBase(Theme::Role::Red, palette));
}

TEST_F(LogViewTest, IsReadableOnItsBackground) {
    log("bad", LogLevel::Error);
    refresh();
    // A light list in a dark window.
    QPalette mixed = palette(Palette::Dark);
    mixed.setColor(QPalette::Base, Qt::white);
    mixed.setColor(QPalette::Text, Qt::black);
    view_.setPalette(mixed);
    for (const int column : {0, 1, 2}) {
        EXPECT_GE(Theme::contrast(colorOf(0, column), Qt::white), 4.5) << column;
    }
}

TEST_F(LogViewTest, IsMonospacedInColumns) {
    log("message");
    refresh();
    EXPECT_TRUE(QFontInfo(view_.font()).fixedPitch());
    processEvents();
    view_.grab();
    const QTextBlock block = line(0);
    const QTextLine text = block.layout()->lineAt(0);
    const auto columnStart = [&](int column) {
        const QString before = block.text().section(u'\t', 0, column - 1) + u'\t';
        return text.cursorToX(static_cast<int>(before.size()));
    };
    EXPECT_GE(columnStart(2) - columnStart(1), LogView::categoryWidth);
    const QFontMetricsF metrics(view_.font());
    EXPECT_GT(
        columnStart(2) - columnStart(1), metrics.horizontalAdvance(QStringLiteral("collector")));
}

TEST_F(LogViewTest, LinesAreFourPixelsApart) {
    logLines(2);
    refresh();
    view_.grab();
    const QFontMetricsF metrics(view_.font());
    const auto* layout = view_.document()->documentLayout();
    EXPECT_NEAR(layout->blockBoundingRect(line(0)).height(), metrics.height() + 4, 1);
}

TEST_F(LogViewTest, AtTheTopItFollowsNewEntries) {
    logLines(100);
    refresh();
    EXPECT_EQ(top(), "100");
    log("new");
    refresh();
    EXPECT_EQ(top(), "new");
}

TEST_F(LogViewTest, ScrolledDownItKeepsItsPosition) {
    logLines(1'990);
    refresh();
    scrollTo(500);
    EXPECT_EQ(top(), "1490");
    logLines(400);
    refresh();
    EXPECT_EQ(top(), "1490");
}

TEST_F(LogViewTest, FollowsNewEntriesAgainAfterScrollingToTheTop) {
    logLines(100);
    refresh();
    scrollTo(50);
    scrollTo(0);
    log("new");
    refresh();
    EXPECT_EQ(top(), "new");
}

TEST_F(LogViewTest, KeepsTheSelectionInPlace) {
    logLines(100);
    refresh();
    QTextCursor cursor(line(2));
    cursor.select(QTextCursor::LineUnderCursor);
    view_.setTextCursor(cursor);
    const QString selected = cursor.selectedText();
    logLines(10);
    refresh();
    EXPECT_EQ(top(), "100");
    EXPECT_EQ(view_.textCursor().selectedText(), selected);
}

TEST_F(LogViewTest, FilteringKeepsThePositionAndRestoresIt) {
    for (int number = 1; number <= 1'000; ++number) {
        log(std::to_string(number), number % 10 == 0 ? LogLevel::Error : LogLevel::Info);
    }
    refresh();
    scrollTo(494);
    EXPECT_EQ(top(), "506");
    model_.setProblemsOnly(true);
    EXPECT_EQ(top(), "500");
    log("new", LogLevel::Error);
    refresh();
    EXPECT_EQ(top(), "500");
    model_.setProblemsOnly(false);
    EXPECT_EQ(top(), "506");
}

TEST_F(LogViewTest, FilteringAtTheTopStaysAtTheTop) {
    for (int number = 1; number <= 1'000; ++number) {
        log(std::to_string(number), number % 10 == 0 ? LogLevel::Error : LogLevel::Info);
    }
    log("newest");
    refresh();
    model_.setProblemsOnly(true);
    EXPECT_EQ(top(), "1000");
    model_.setProblemsOnly(false);
    EXPECT_EQ(top(), "newest");
}

TEST_F(LogViewTest, TheKeyboardSelectsAndCopies) {
    log("one");
    log("two");
    refresh();
    view_.setFocus();
    QTest::keyClick(&view_, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(&view_, Qt::Key_C, Qt::ControlModifier);
    const QString copied = QApplication::clipboard()->text();
    EXPECT_EQ(copied, view_.toPlainText());
    EXPECT_EQ(copied.count(u'\n'), 1);
}

TEST_F(LogViewTest, CopiesALongLineCompletely) {
    const std::string longText(5'000, 'x');
    log(longText);
    refresh();
    view_.selectAll();
    view_.copy();
    EXPECT_TRUE(QApplication::clipboard()->text().endsWith(QString::fromStdString(longText)));
    EXPECT_GT(view_.horizontalScrollBar()->maximum(), 0);
}

TEST_F(LogViewTest, CannotBeEdited) {
    log("one");
    refresh();
    const QString before = view_.toPlainText();
    view_.setFocus();
    view_.selectAll();
    QTest::keyClicks(&view_, QStringLiteral("x"));
    QTest::keyClick(&view_, Qt::Key_Delete);
    QTest::keyClick(&view_, Qt::Key_X, Qt::ControlModifier);
    EXPECT_EQ(view_.toPlainText(), before);
}

TEST_F(LogViewTest, AScreenReaderReadsItsText) {
    log("one");
    refresh();
    QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(&view_);
    ASSERT_NE(interface, nullptr);
    ASSERT_NE(interface->textInterface(), nullptr);
    EXPECT_EQ(
        interface->textInterface()->text(0, interface->textInterface()->characterCount()),
        view_.toPlainText());
    EXPECT_FALSE(interface->state().editable);
}

TEST_F(LogViewTest, FollowsThePalette) {
    log("bad", LogLevel::Error);
    refresh();
    const QPalette before = QApplication::palette();
    const QPalette dark = palette(Palette::Dark);
    QApplication::setPalette(dark);
    processEvents();
    EXPECT_EQ(colorOf(0, 2), Theme::colorOnBase(Theme::Role::Red, dark));
    EXPECT_NE(colorOf(0, 2), Theme::colorOnBase(Theme::Role::Red, before));
    QApplication::setPalette(before);
    processEvents();
}

TEST_F(LogViewTest, FollowsTheTextSizeAndKeepsTheColumns) {
    log("message");
    refresh();
    const QFont before = QApplication::font();
    QFont large = before;
    large.setPointSizeF(before.pointSizeF() * 2);
    QApplication::setFont(large);
    processEvents();
    const QList<QTextOption::Tab> tabs = view_.document()->defaultTextOption().tabs();
    const QFontMetricsF metrics(view_.font());
    QApplication::setFont(before);
    EXPECT_GT(
        tabs[1].position - tabs[0].position,
        metrics.horizontalAdvance(QStringLiteral("collector")));
}

} // namespace orvel::test
