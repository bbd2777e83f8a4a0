// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogWindow.h"

#include "OrvelAgent/ui/log/LogView.h"
#include "tests/OrvelAgent/ui/log/LogFixture.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace orvel::test {

namespace {

class LogWindowTest : public LogFixture {
protected:
    void show() {
        window_->show();
        processEvents();
    }

    template <typename Widget>
    [[nodiscard]] Widget* find(const char* name) const {
        return window_->findChild<Widget*>(QLatin1String(name));
    }

    [[nodiscard]] QCheckBox* problemsOnly() const { return find<QCheckBox>("problemsOnly"); }
    [[nodiscard]] QPushButton* copyAll() const { return find<QPushButton>("copyAll"); }
    [[nodiscard]] LogView* list() const { return find<LogView>("log"); }
    /// The text shown instead of the list. Empty while the list is shown.
    [[nodiscard]] std::string notice() const {
        const auto* label = find<QLabel>("notice");
        return label->isVisible() ? label->text().toStdString() : "";
    }
    [[nodiscard]] std::string streaming() const {
        return find<QLabel>("streaming")->text().toStdString();
    }
    /// Without the mnemonic.
    [[nodiscard]] std::string copyText() const {
        return copyAll()->text().remove(u'&').toStdString();
    }

    std::unique_ptr<LogWindow> window_ = std::make_unique<LogWindow>(store_, clock_, subsystems());
};

} // namespace

TEST_F(LogWindowTest, HasTitleNameAndMinimumSize) {
    EXPECT_EQ(window_->windowTitle(), QStringLiteral("Orvel Agent Activity"));
    EXPECT_EQ(window_->objectName(), QStringLiteral("activity-log"));
    EXPECT_EQ(window_->minimumSize(), QSize(620, 380));
}

TEST_F(LogWindowTest, ReadsOnlyWhileVisible) {
    refresh();
    EXPECT_TRUE(store_.reads().empty());
    EXPECT_EQ(streaming(), "Paused");
    show();
    EXPECT_EQ(store_.reads().size(), 1U);
    EXPECT_EQ(streaming(), "Live");
    window_->close();
    EXPECT_EQ(streaming(), "Paused");
    refresh();
    EXPECT_EQ(store_.reads().size(), 1U);
    show();
    EXPECT_EQ(store_.reads().size(), 2U);
    EXPECT_EQ(streaming(), "Live");
}

TEST_F(LogWindowTest, KeepsItsEntriesWhileHidden) {
    log("one");
    show();
    window_->hide();
    show();
    EXPECT_EQ(list()->document()->blockCount(), 1);
    EXPECT_NE(list()->toPlainText(), QString());
}

TEST_F(LogWindowTest, SaysThatNothingIsLogged) {
    show();
    EXPECT_EQ(notice(), "Nothing logged yet this session.");
    EXPECT_FALSE(list()->isVisible());
}

TEST_F(LogWindowTest, SaysThatThereAreNoErrors) {
    show();
    problemsOnly()->setChecked(true);
    EXPECT_EQ(notice(), "No errors this session.");
    log("fine");
    refresh();
    EXPECT_EQ(notice(), "No errors this session.");
    log("bad", LogLevel::Error);
    refresh();
    EXPECT_EQ(notice(), "");
    EXPECT_TRUE(list()->isVisible());
}

TEST_F(LogWindowTest, ShowsTheListAfterTheFirstEntry) {
    show();
    log("one");
    refresh();
    EXPECT_EQ(notice(), "");
    EXPECT_TRUE(list()->isVisible());
}

TEST_F(LogWindowTest, StartsWithAllEntries) {
    EXPECT_FALSE(problemsOnly()->isChecked());
    EXPECT_EQ(problemsOnly()->text().remove(u'&'), QStringLiteral("Problems only"));
}

TEST_F(LogWindowTest, ShowsAReadFailureUntilAReadSucceeds) {
    log("one");
    show();
    store_.readError = tavrin::PlatformError("log", 1, "The journal is gone.");
    refresh();
    EXPECT_EQ(notice(), "Could not read the log: The journal is gone.");
    EXPECT_FALSE(list()->isVisible());
    EXPECT_EQ(streaming(), "Live");
    store_.readError.reset();
    refresh();
    EXPECT_EQ(notice(), "");
    EXPECT_TRUE(list()->isVisible());
}

TEST_F(LogWindowTest, CopiesAllEntriesOldestFirstIncludingFilteredOnes) {
    log("one");
    log("two", LogLevel::Error);
    show();
    problemsOnly()->setChecked(true);
    copyAll()->click();
    LogReader reader(store_, clock_, subsystems());
    reader.startStreaming();
    processEvents();
    const std::string copied = QApplication::clipboard()->text().toStdString();
    EXPECT_EQ(copied, reader.plainText());
    EXPECT_LT(copied.find("] info  one"), copied.find("] ERROR  two"));
}

TEST_F(LogWindowTest, ShowsCopiedForTwoSeconds) {
    show();
    EXPECT_EQ(copyText(), "Copy all");
    const qint64 icon = copyAll()->icon().cacheKey();
    copyAll()->click();
    EXPECT_EQ(copyText(), "Copied");
    EXPECT_NE(copyAll()->icon().cacheKey(), icon);
    clock_.advance(tavrin::Seconds(1.9));
    EXPECT_EQ(copyText(), "Copied");
    clock_.advance(tavrin::Seconds(0.1));
    EXPECT_EQ(copyText(), "Copy all");
}

TEST_F(LogWindowTest, CopyingAgainRestartsTheTwoSeconds) {
    show();
    copyAll()->click();
    clock_.advance(tavrin::Seconds(1.5));
    copyAll()->click();
    clock_.advance(tavrin::Seconds(1.5));
    EXPECT_EQ(copyText(), "Copied");
    clock_.advance(tavrin::Seconds(0.5));
    EXPECT_EQ(copyText(), "Copy all");
}

TEST_F(LogWindowTest, TheCopyButtonKeepsItsWidth) {
    show();
    const int before = copyAll()->width();
    copyAll()->click();
    processEvents();
    EXPECT_EQ(copyAll()->width(), before);
}

TEST_F(LogWindowTest, MayBeDestroyedAtAnyTime) {
    store_.hold();
    show();
    copyAll()->click();
    window_.reset();
    store_.answer();
    processEvents();
    clock_.advance(tavrin::Seconds(10));
}

TEST_F(LogWindowTest, DestroysTheViewBeforeTheModel) {
    log("one");
    show();
    bool isWindowWhole = false;
    QObject::connect(list(), &QObject::destroyed, list()->window(), [&, window = list()->window()] {
        isWindowWhole = qobject_cast<LogWindow*>(window) != nullptr;
    });
    window_.reset();
    EXPECT_TRUE(isWindowWhole);
}

TEST_F(LogWindowTest, TabKeyVisitsTheControlsInOrder) {
    log("one");
    show();
    window_->activateWindow();
    problemsOnly()->setFocus();
    QTest::keyClick(window_.get(), Qt::Key_Tab);
    EXPECT_EQ(window_->focusWidget(), copyAll());
    QTest::keyClick(window_.get(), Qt::Key_Tab);
    EXPECT_EQ(window_->focusWidget(), list());
    QTest::keyClick(list(), Qt::Key_Tab);
    EXPECT_EQ(window_->focusWidget(), problemsOnly());
}

TEST_F(LogWindowTest, EveryControlHasAnAccessibleName) {
    log("one");
    show();
    for (QWidget* control :
         {static_cast<QWidget*>(problemsOnly()),
          static_cast<QWidget*>(copyAll()),
          static_cast<QWidget*>(list())}) {
        EXPECT_FALSE(
            QAccessible::queryAccessibleInterface(control)->text(QAccessible::Name).isEmpty())
            << control->objectName().toStdString();
    }
}

class LogWindowLookTest : public LogWindowTest, public testing::WithParamInterface<Look> {};

TEST_P(LogWindowLookTest, NoTextIsCutInAnyState) {
    const DesktopLook look(GetParam());
    window_ = std::make_unique<LogWindow>(store_, clock_, subsystems());
    show();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
    log("one");
    refresh();
    copyAll()->click();
    processEvents();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
    problemsOnly()->setChecked(true);
    processEvents();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
    store_.readError =
        tavrin::PlatformError("log", 1, std::string(40, 'x') + std::string(300, ' '));
    refresh();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
}

TEST_P(LogWindowLookTest, FollowsChangesOfTheDesktop) {
    show();
    log("one");
    refresh();
    const DesktopLook look(GetParam());
    processEvents();
    copyAll()->click();
    processEvents();
    EXPECT_THAT(layoutFaults(*window_), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Looks, LogWindowLookTest, testing::ValuesIn(allLooks()), nameOfLook);

} // namespace orvel::test
