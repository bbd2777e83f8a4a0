// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/TavrinMacApp.h"

#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/IgnoredTrayWarning.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace orvel::test {

namespace {

class TavrinMacAppTest : public testing::Test {
protected:
    TavrinMacAppTest() {
        options_.sourcePath = (directory_ / "chat.db").string();
        begin();
    }

    /// Starts the application again.
    void begin() {
        app_.reset();
        app_ = std::make_unique<TavrinMacApp>(with_.platform, with_.updatePresenter, options_);
        processEvents();
    }

    static QWidget* find(const char* name) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->objectName() == QLatin1String(name)) {
                return widget;
            }
        }
        return nullptr;
    }

    QWidget& open(const char* name) {
        app_->openWindow(QString::fromLatin1(name));
        processEvents();
        QWidget* const window = find(name);
        if (window == nullptr) {
            throw std::runtime_error("The window did not open.");
        }
        return *window;
    }

    IgnoredTrayWarning ignoredTrayWarning_;
    TemporaryDirectory directory_;
    TestPlatform with_;
    CollectorService::Options options_;
    std::unique_ptr<TavrinMacApp> app_;
};

struct Window {
    const char* name;
    const char* title;
    /// Empty if the window fits its content.
    QSize size;
};

class TavrinMacAppWindowTest : public TavrinMacAppTest,
                               public testing::WithParamInterface<Window> {};

} // namespace

TEST_F(TavrinMacAppTest, IsAnAccessoryApplicationAtTheStart) {
    app_.reset();
    with_.applicationFocus.policy = ApplicationFocus::ActivationPolicy::Regular;
    begin();
    EXPECT_EQ(with_.applicationFocus.policy, ApplicationFocus::ActivationPolicy::Accessory);
}

TEST_P(TavrinMacAppWindowTest, OpensWithItsTitleAndSize) {
    EXPECT_EQ(find(GetParam().name), nullptr);
    const QWidget& window = open(GetParam().name);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(window.windowTitle().toStdString(), GetParam().title);
    if (!GetParam().size.isEmpty()) {
        EXPECT_EQ(window.size(), GetParam().size);
    }
    EXPECT_GE(with_.applicationFocus.activations, 1);
}

TEST_P(TavrinMacAppWindowTest, OpensOnlyOneWindowPerName) {
    QWidget& window = open(GetParam().name);
    window.showMinimized();
    EXPECT_EQ(&open(GetParam().name), &window);
    EXPECT_FALSE(window.isMinimized());
}

TEST_P(TavrinMacAppWindowTest, ClosesByKeyboardAndIsDestroyed) {
    for (const QKeySequence& keys :
         {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)}) {
        QWidget& window = open(GetParam().name);
        ASSERT_TRUE(waitUntil([&] { return window.isActiveWindow(); }));
        // The keys work even if the focus is in a text.
        if (auto* const text = window.findChild<QPlainTextEdit*>()) {
            text->setFocus();
        }
        QWidget* const focused = window.focusWidget();
        QTest::keySequence(focused != nullptr ? focused : &window, keys);
        processEvents();
        EXPECT_EQ(find(GetParam().name), nullptr) << keys.toString().toStdString();
    }
}

TEST_P(TavrinMacAppWindowTest, OpensANewWindowWhileTheOldOneCloses) {
    const QPointer<QWidget> closing = &open(GetParam().name);
    closing->close();
    app_->openWindow(QString::fromLatin1(GetParam().name));
    processEvents();
    const QWidget* const window = find(GetParam().name);
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(closing, nullptr);
}

TEST_P(TavrinMacAppWindowTest, RestoresItsSize) {
    QWidget& window = open(GetParam().name);
    window.setWindowState(Qt::WindowMaximized | Qt::WindowMinimized);
    open(GetParam().name);
    EXPECT_TRUE(window.isMaximized());
    EXPECT_FALSE(window.isMinimized());
}

TEST_P(TavrinMacAppWindowTest, RestoresItsPositionAfterClosing) {
    QWidget& window = open(GetParam().name);
    window.move(37, 41);
    const QRect saved = window.geometry();
    window.close();
    begin();
    EXPECT_EQ(open(GetParam().name).geometry(), saved);
}

TEST_P(TavrinMacAppWindowTest, RestoresItsPositionAfterQuitting) {
    QWidget& window = open(GetParam().name);
    window.move(37, 41);
    const QRect saved = window.geometry();
    begin();
    EXPECT_EQ(open(GetParam().name).geometry(), saved);
}

INSTANTIATE_TEST_SUITE_P(
    Windows,
    TavrinMacAppWindowTest,
    testing::Values(
        Window{TavrinMacApp::activityLog, "Orvel Agent Activity", {720, 460}},
        Window{TavrinMacApp::versionHistory, "Orvel Agent Version History", {520, 480}},
        Window{TavrinMacApp::settings, "Orvel Agent Settings", {}}),
    [](const auto& window) {
        std::string name = window.param.name;
        std::erase(name, '-');
        return name;
    });

TEST_F(TavrinMacAppTest, OpeningAWindowClosesThePanel) {
    app_->menuBarExtra().showPanel();
    ASSERT_TRUE(app_->menuBarExtra().isPanelOpen());
    open(TavrinMacApp::versionHistory);
    EXPECT_FALSE(app_->menuBarExtra().isPanelOpen());
}

TEST_F(TavrinMacAppTest, OpeningAWindowKeepsAPanelThatIsAWindow) {
    with_.tray.setAvailable(false);
    begin();
    app_->menuBarExtra().showPanel();
    open(TavrinMacApp::settings);
    QWidget* const panel = find("menu-bar-panel");
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_FALSE(panel->isMinimized());
}

TEST_F(TavrinMacAppTest, ThePanelOpensTheWindowsAndQuits) {
    Q_EMIT app_->menuBarExtra().versionHistoryRequested();
    EXPECT_NE(find(TavrinMacApp::versionHistory), nullptr);
    Q_EMIT app_->menuBarExtra().settingsRequested();
    EXPECT_NE(find(TavrinMacApp::settings), nullptr);
    Q_EMIT app_->menuBarExtra().quitRequested();
    EXPECT_EQ(with_.processControl.terminations, 1);
}

TEST_F(TavrinMacAppTest, StopClosesTheWindowsAndRemovesTheIcon) {
    open(TavrinMacApp::activityLog);
    app_->menuBarExtra().showPanel();
    runTask(app_->stop());
    EXPECT_EQ(find(TavrinMacApp::activityLog), nullptr);
    EXPECT_EQ(find("menu-bar-panel"), nullptr);
}

/// Counts the timers of the whole application.
class TavrinMacAppIdleTest : public TavrinMacAppTest {
protected:
    int timersInAnHour() {
        // A closed panel must not leave a timer.
        app_->menuBarExtra().showPanel();
        processEvents();
        app_->menuBarExtra().closePanel();
        processEvents();
        EXPECT_EQ(find("menu-bar-panel"), nullptr);
        constexpr tavrin::Seconds hour(3'600);
        const tavrin::Seconds end = with_.clock.uptime() + hour;
        int count = 0;
        while (with_.clock.uptime() < end) {
            with_.clock.advance(with_.clock.untilNextTimer().value_or(hour));
            ++count;
            EXPECT_TRUE(waitUntil([this] { return !app_->model().collector().isScanning(); }));
            processEvents();
        }
        return count;
    }
};

TEST_F(TavrinMacAppIdleTest, FlashingWakesUpAtMostOnceASecond) {
    ASSERT_TRUE(app_->model().needsAttention());
    EXPECT_LE(timersInAnHour(), 3'600);
}

TEST_F(TavrinMacAppIdleTest, WakesUpAtMostOnceInTenSecondsWhenIdle) {
    const MessagesDatabaseBuilder database(directory_ / "chat.db");
    with_.storeSession();
    begin();
    ASSERT_TRUE(waitUntil([this] { return app_->model().collector().hasScanned(); }));
    ASSERT_FALSE(app_->model().needsAttention());
    EXPECT_LE(timersInAnHour(), 360);
}

} // namespace orvel::test
