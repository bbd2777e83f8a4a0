// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/MenuBarExtra.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/IgnoredTrayWarning.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <QAccessible>
#include <QApplication>
#include <QMenu>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

namespace orvel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MenuBarExtraTest : public testing::Test {
protected:
    MenuBarExtraTest() { options_.sourcePath = (directory_ / "chat.db").string(); }

    void begin() {
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options_);
        extra_ = std::make_unique<MenuBarExtra>(
            *model_,
            MenuBarExtra::Ports{with_.tray, with_.instanceRegistry, with_.clock, with_.logStore});
        processEvents();
    }

    static QList<MenuBarContentView*> panels() {
        // A closed panel is deleted later.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QList<MenuBarContentView*> found;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* panel = qobject_cast<MenuBarContentView*>(widget)) {
                found.append(panel);
            }
        }
        return found;
    }

    static QWidget& panel() {
        EXPECT_EQ(panels().size(), 1);
        return *panels().constFirst();
    }

    void click() {
        Q_EMIT extra_->trayIcon()->activated(QSystemTrayIcon::Trigger);
        processEvents();
    }

    static void press(const QKeySequence& keys) {
        ASSERT_TRUE(waitUntil([] { return panel().isActiveWindow(); }));
        QTest::keySequence(&panel(), keys);
        processEvents();
    }

    /// As if the user clicked another window.
    static void takeFocus() {
        QEvent event(QEvent::WindowDeactivate);
        QCoreApplication::sendEvent(&panel(), &event);
        processEvents();
    }

    std::vector<std::string> logged() const {
        std::vector<std::string> messages;
        for (const auto& line : with_.logStore.lines()) {
            if (line.category == "lifecycle") {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    IgnoredTrayWarning ignoredTrayWarning_;
    TemporaryDirectory directory_;
    TestPlatform with_;
    CollectorService::Options options_;
    std::unique_ptr<AppModel> model_;
    std::unique_ptr<MenuBarExtra> extra_;
};

} // namespace

TEST_F(MenuBarExtraTest, TheToolTipDescribesTheStatus) {
    begin();
    ASSERT_NE(extra_->trayIcon(), nullptr);
    EXPECT_TRUE(extra_->trayIcon()->isVisible());
    EXPECT_FALSE(extra_->trayIcon()->icon().isNull());
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_EQ(
        extra_->trayIcon()->toolTip(), QStringLiteral("Orvel Agent: Sign in to start collecting."));
    with_.clock.advance(AttentionFlash::alertDuration);
    EXPECT_EQ(extra_->trayIcon()->toolTip(), QStringLiteral("Orvel Agent"));
}

TEST_F(MenuBarExtraTest, GivesTheStatusToScreenReaders) {
    begin();
    EXPECT_EQ(with_.tray.title, "Orvel Agent");
    with_.clock.advance(AttentionFlash::brandDuration);
    EXPECT_EQ(with_.tray.title, "Orvel Agent: Sign in to start collecting.");
    // A new tray gets a new icon, which needs the title too.
    with_.tray.setAvailable(false);
    with_.tray.title.clear();
    with_.tray.setAvailable(true);
    EXPECT_EQ(with_.tray.title, "Orvel Agent: Sign in to start collecting.");
    const auto* menu = QAccessible::queryAccessibleInterface(extra_->trayIcon()->contextMenu());
    EXPECT_EQ(menu->text(QAccessible::Name), QStringLiteral("Orvel Agent"));
    EXPECT_EQ(menu->role(), QAccessible::PopupMenu);
}

TEST_F(MenuBarExtraTest, TheIconFollowsTheStatus) {
    begin();
    const qint64 brand = extra_->trayIcon()->icon().cacheKey();
    with_.clock.advance(AttentionFlash::brandDuration);
    const qint64 attention = extra_->trayIcon()->icon().cacheKey();
    EXPECT_NE(attention, brand);
    Q_EMIT model_->changed();
    EXPECT_EQ(extra_->trayIcon()->icon().cacheKey(), attention) << "the icon was drawn again";
}

TEST_F(MenuBarExtraTest, AMenuBarGetsATemplateIcon) {
    begin();
    EXPECT_FALSE(extra_->trayIcon()->icon().isMask());
    extra_.reset();
    with_.tray.isInMenuBar = true;
    begin();
    EXPECT_TRUE(extra_->trayIcon()->icon().isMask());
}

TEST_F(MenuBarExtraTest, InAMenuBarOnlyTheSecondaryButtonOpensTheMenu) {
    with_.tray.isInMenuBar = true;
    begin();
    EXPECT_EQ(extra_->trayIcon()->contextMenu(), nullptr)
        << "a context menu would open at every click";
    click();
    EXPECT_TRUE(panel().isVisible());
    Q_EMIT extra_->trayIcon()->activated(QSystemTrayIcon::Context);
    processEvents();
    EXPECT_THAT(panels(), IsEmpty());
    const QList<QWidget*> widgets = QApplication::topLevelWidgets();
    EXPECT_TRUE(std::ranges::any_of(widgets, [](const QWidget* widget) {
        return widget->objectName() == QStringLiteral("tray-menu") && widget->isVisible();
    }));
}

TEST_F(MenuBarExtraTest, AClickOpensThePanelAndAnotherClosesIt) {
    begin();
    EXPECT_THAT(panels(), IsEmpty());
    click();
    EXPECT_TRUE(panel().isVisible());
    click();
    EXPECT_THAT(panels(), IsEmpty());
    click();
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, ThePanelClosesWhenItLosesTheFocus) {
    begin();
    click();
    takeFocus();
    EXPECT_THAT(panels(), IsEmpty());
}

TEST_F(MenuBarExtraTest, TheClickThatClosedThePanelDoesNotReopenIt) {
    begin();
    click();
    takeFocus();
    click();
    EXPECT_THAT(panels(), IsEmpty());
    click();
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, ALaterClickReopensThePanel) {
    begin();
    click();
    takeFocus();
    with_.clock.advance(tavrin::Seconds(1));
    click();
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, ThePanelClosesByKeyboard) {
    begin();
    click();
    press(QKeySequence(Qt::Key_Escape));
    EXPECT_THAT(panels(), IsEmpty());
    click();
    press(QKeySequence(Qt::CTRL | Qt::Key_W));
    EXPECT_THAT(panels(), IsEmpty());
}

TEST_F(MenuBarExtraTest, StartingAnotherCopyOpensThePanel) {
    begin();
    with_.instanceRegistry.beActivated();
    EXPECT_TRUE(panel().isVisible());
    with_.instanceRegistry.beActivated();
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, TheMenuOpensThePanelAndSettingsAndQuits) {
    begin();
    QStringList asked;
    QObject::connect(extra_.get(), &MenuBarExtra::settingsRequested, extra_.get(), [&] {
        asked.append(QStringLiteral("settings"));
    });
    QObject::connect(extra_.get(), &MenuBarExtra::quitRequested, extra_.get(), [&] {
        asked.append(QStringLiteral("quit"));
    });
    QStringList texts;
    for (QAction* action : extra_->trayIcon()->contextMenu()->actions()) {
        texts.append(action->text());
        action->trigger();
    }
    EXPECT_EQ(
        texts,
        QStringList(
            {QStringLiteral("Open Orvel Agent"),
             QStringLiteral("Settings…"),
             QString(),
             QStringLiteral("Quit")}));
    EXPECT_EQ(asked, QStringList({QStringLiteral("settings"), QStringLiteral("quit")}));
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, WithoutATrayThePanelIsAWindow) {
    with_.tray.setAvailable(false);
    begin();
    EXPECT_THAT(panels(), IsEmpty());
    with_.clock.advance(MenuBarExtra::trayTimeout);
    ASSERT_TRUE(panel().isVisible());
    EXPECT_EQ(panel().windowType(), Qt::Window);
    EXPECT_FALSE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
    EXPECT_EQ(panel().windowTitle(), QStringLiteral("Orvel Agent"));
    EXPECT_THAT(
        logged(),
        ElementsAre("this desktop has no tray for the icon, so the panel opens as a window"));
    takeFocus();
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, WithoutATrayClosingTheWindowMinimisesIt) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    panel().close();
    processEvents();
    EXPECT_TRUE(panel().isMinimized());
    with_.instanceRegistry.beActivated();
    EXPECT_FALSE(panel().isMinimized());
}

TEST_F(MenuBarExtraTest, ATrayBeforeTheTimeoutOpensNoWindow) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout / 2);
    with_.tray.setAvailable(true);
    ASSERT_NE(extra_->trayIcon(), nullptr);
    with_.clock.advance(MenuBarExtra::trayTimeout);
    EXPECT_THAT(panels(), IsEmpty());
}

TEST_F(MenuBarExtraTest, ALateTrayGetsTheIcon) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    with_.tray.setAvailable(true);
    ASSERT_NE(extra_->trayIcon(), nullptr);
    EXPECT_TRUE(extra_->trayIcon()->isVisible());
    EXPECT_THAT(panels(), IsEmpty()) << "the user has not used the window";
    click();
    EXPECT_TRUE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
}

TEST_F(MenuBarExtraTest, ALateTrayKeepsAWindowThatIsInUse) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    QTest::keyClick(&panel(), Qt::Key_Tab);
    with_.tray.setAvailable(true);
    processEvents();
    ASSERT_TRUE(panel().isVisible());
    panel().close();
    processEvents();
    EXPECT_THAT(panels(), IsEmpty()) << "with an icon the window may close";
}

TEST_F(MenuBarExtraTest, ALateTrayKeepsAWindowThatWasRequested) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    with_.instanceRegistry.beActivated();
    with_.tray.setAvailable(true);
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, LosingTheTrayOpensTheWindow) {
    begin();
    with_.tray.setAvailable(false);
    EXPECT_EQ(extra_->trayIcon(), nullptr);
    EXPECT_THAT(panels(), IsEmpty()) << "the tray may restart";
    with_.clock.advance(MenuBarExtra::trayTimeout);
    ASSERT_TRUE(panel().isVisible());
    EXPECT_FALSE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
    EXPECT_THAT(
        logged(),
        ElementsAre("this desktop has no tray for the icon, so the panel opens as a window"));
}

TEST_F(MenuBarExtraTest, ARestartedTrayGetsANewIcon) {
    begin();
    with_.tray.setAvailable(false);
    with_.tray.setAvailable(true);
    ASSERT_NE(extra_->trayIcon(), nullptr);
    EXPECT_TRUE(extra_->trayIcon()->isVisible());
    EXPECT_FALSE(extra_->trayIcon()->icon().isNull());
    with_.clock.advance(MenuBarExtra::trayTimeout);
    EXPECT_THAT(panels(), IsEmpty());
    click();
    EXPECT_TRUE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
}

TEST_F(MenuBarExtraTest, LosingTheTrayTurnsThePanelIntoAWindow) {
    begin();
    click();
    with_.tray.setAvailable(false);
    with_.clock.advance(MenuBarExtra::trayTimeout);
    processEvents();
    EXPECT_FALSE(panel().windowFlags().testFlag(Qt::FramelessWindowHint));
    EXPECT_TRUE(panel().isVisible());
}

TEST_F(MenuBarExtraTest, ClosePanelKeepsTheOrdinaryWindow) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    extra_->closePanel();
    processEvents();
    EXPECT_TRUE(panel().isVisible());
    EXPECT_FALSE(panel().isMinimized());
}

TEST_F(MenuBarExtraTest, RestoringTheWindowChecksThePermissions) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    panel().close();
    processEvents();
    ASSERT_TRUE(waitUntil([this] { return !model_->hasFullDiskAccess(); }));
    const MessagesDatabaseBuilder database(directory_ / "chat.db");
    with_.instanceRegistry.beActivated();
    EXPECT_TRUE(waitUntil([this] { return model_->hasFullDiskAccess(); }));
}

TEST_F(MenuBarExtraTest, RestoringTheWindowKeepsItMaximised) {
    with_.tray.setAvailable(false);
    begin();
    with_.clock.advance(MenuBarExtra::trayTimeout);
    panel().setWindowState(Qt::WindowMaximized | Qt::WindowMinimized);
    with_.instanceRegistry.beActivated();
    EXPECT_TRUE(panel().isMaximized());
    EXPECT_FALSE(panel().isMinimized());
}

TEST_F(MenuBarExtraTest, DestroyingItDestroysThePanel) {
    begin();
    click();
    extra_.reset();
    EXPECT_THAT(panels(), IsEmpty());
}

} // namespace orvel::test
