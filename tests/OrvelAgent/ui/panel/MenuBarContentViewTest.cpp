// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/MenuBarContentView.h"

#include "OrvelAgent/ui/controls/Spinner.h"
#include "OrvelAgent/ui/controls/TextButton.h"
#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "core/UserDefaultsKeys.h"
#include "tests/support/RunTask.h"
#include "tests/support/SampleAgent.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/ToolTipText.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QEnterEvent>
#include <QFont>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel {
namespace {

using test::AgentState;
using test::processEvents;
using test::SampleAgent;
using test::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;

std::string nameOfState(const testing::TestParamInfo<AgentState>& info) {
    std::string result = test::name(info.param);
    std::erase(result, '-');
    return result;
}

class PanelLayoutTest : public testing::TestWithParam<AgentState> {};

TEST_P(PanelLayoutTest, NothingIsCutOrOverlapsOnAnyDesktop) {
    SampleAgent agent(GetParam());
    for (const test::Look& look : test::allLooks()) {
        const test::DesktopLook desktop(look);
        MenuBarContentView panel(agent.model());
        panel.show();
        processEvents();
        EXPECT_THAT(test::layoutFaults(panel), IsEmpty())
            << test::name(look.palette) << ", text " << look.textPercent << ", direction "
            << look.direction;
    }
}

TEST_P(PanelLayoutTest, EveryControlHasANameAndTheBottomRowComesLast) {
    SampleAgent agent(GetParam());
    MenuBarContentView panel(agent.model());
    panel.show();
    processEvents();
    const std::vector<std::string> order = test::tabOrder(panel);
    for (const std::string& control : order) {
        auto* widget = panel.findChild<QWidget*>(QString::fromStdString(control));
        ASSERT_NE(widget, nullptr) << control;
        const auto* accessible = QAccessible::queryAccessibleInterface(widget);
        EXPECT_NE(accessible->text(QAccessible::Name), QString()) << control;
        const bool isText = widget->inherits("QTextEdit");
        EXPECT_EQ(accessible->role(), isText ? QAccessible::EditableText : QAccessible::Button)
            << control;
        EXPECT_EQ(accessible->state().readOnly, isText) << control;
    }
    ASSERT_GE(order.size(), 3U);
    EXPECT_THAT(
        std::vector(order.end() - 3, order.end()), ElementsAre("version", "settings", "quit"));
}

TEST_P(PanelLayoutTest, EveryLabelShowsPlainText) {
    SampleAgent agent(GetParam());
    const MenuBarContentView panel(agent.model());
    for (const QLabel* label : panel.findChildren<QLabel*>()) {
        if (!label->text().isEmpty()) {
            EXPECT_EQ(label->textFormat(), Qt::PlainText) << label->text().toStdString();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    States, PanelLayoutTest, testing::ValuesIn(test::allAgentStates), nameOfState);

class MenuBarContentViewTest : public testing::Test {
protected:
    void show(AgentState state) {
        agent_.emplace(state);
        panel_.emplace(agent_->model());
        panel_->show();
        processEvents();
    }

    ~MenuBarContentViewTest() override { panel_.reset(); }

    /// Finds a widget by its path of object names.
    template <typename Widget = QWidget>
    Widget* find(std::initializer_list<const char*> path) {
        QWidget* widget = &*panel_;
        for (const char* name : path) {
            widget = widget->findChild<QWidget*>(QString::fromLatin1(name));
            if (widget == nullptr) {
                ADD_FAILURE() << "There is no " << name;
                throw std::runtime_error(name);
            }
        }
        return dynamic_cast<Widget*>(widget);
    }

    bool isShown(std::initializer_list<const char*> path) { return find(path)->isVisible(); }
    std::string text(std::initializer_list<const char*> path) {
        QWidget* widget = find(path);
        if (auto* button = dynamic_cast<QPushButton*>(widget)) {
            return button->text().toStdString();
        }
        if (auto* selectable = dynamic_cast<QTextEdit*>(widget)) {
            return selectable->toPlainText().toStdString();
        }
        return dynamic_cast<QLabel*>(widget)->text().toStdString();
    }
    void click(std::initializer_list<const char*> path) { find<QPushButton>(path)->click(); }

    std::optional<SampleAgent> agent_;
    std::optional<MenuBarContentView> panel_;
};

TEST_F(MenuBarContentViewTest, WithNothingWrongItShowsOnlyCountsAndAccount) {
    show(AgentState::NothingWrong);
    EXPECT_EQ(text({"displayName"}), "Orvel Agent");
    EXPECT_EQ(text({"messageCount"}), "128 messages scanned in the last 24 hours");
    EXPECT_EQ(text({"account"}), "sample-1@orvel.example");
    EXPECT_EQ(text({"signOut"}), "Sign out");
    EXPECT_EQ(text({"version"}), "Version 1.2.3");
    EXPECT_EQ(text({"settings"}), "Settings…");
    EXPECT_EQ(text({"quit"}), "Quit");
    for (const char* hidden :
         {"spinner",
          "blockedBanner",
          "fullDiskAccessPrompt",
          "contactsPrompt",
          "noScans",
          "scanError",
          "signInError",
          "signIn",
          "cancelSignIn",
          "noAccountPrompt"}) {
        EXPECT_FALSE(isShown({hidden})) << hidden;
    }
}

TEST_F(MenuBarContentViewTest, Is340PixelsWideAndAsHighAsItsContent) {
    show(AgentState::NothingWrong);
    EXPECT_EQ(panel_->width(), 340);
    const int height = panel_->height();
    agent_->model().collector().setPaused(true);
    processEvents();
    EXPECT_TRUE(isShown({"blockedBanner"}));
    EXPECT_EQ(panel_->width(), 340);
    EXPECT_GT(panel_->height(), height);
    agent_->model().collector().setPaused(false);
    processEvents();
    EXPECT_EQ(panel_->height(), height);
}

TEST_F(MenuBarContentViewTest, ItsSizeIsRightBeforeItIsShown) {
    show(AgentState::NothingWrong);
    const QSize before = panel_->size();
    panel_->hide();
    agent_->model().collector().setPaused(true);
    const QSize wanted = panel_->sizeHint();
    EXPECT_GT(wanted.height(), before.height());
    panel_->show();
    EXPECT_EQ(panel_->size(), wanted);
    processEvents();
    EXPECT_EQ(panel_->size(), wanted);
}

TEST_F(MenuBarContentViewTest, AFramelessWindowHasABorder) {
    show(AgentState::NothingWrong);
    panel_->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    panel_->show();
    processEvents();
    EXPECT_EQ(panel_->width(), 340);
    EXPECT_EQ(panel_->frameWidth(), 1);
    EXPECT_THAT(test::layoutFaults(*panel_), IsEmpty());
    const QColor edge = Theme::borderColor(Theme::Surface::Card, panel_->palette());
    for (const int ratio : {1, 2}) {
        QImage image(panel_->size() * ratio, QImage::Format_RGB32);
        image.setDevicePixelRatio(ratio);
        panel_->render(&image);
        const QPoint last(image.width() - 1, image.height() - 1);
        for (int inward = 0; inward < ratio; ++inward) {
            EXPECT_EQ(image.pixelColor(inward, last.y() / 2), edge);
            EXPECT_EQ(image.pixelColor(last.x() / 2, inward), edge);
            EXPECT_EQ(image.pixelColor(last.x() - inward, last.y() / 2), edge);
            EXPECT_EQ(image.pixelColor(last.x() / 2, last.y() - inward), edge);
        }
        EXPECT_NE(image.pixelColor(ratio, ratio), edge);
        EXPECT_NE(image.pixelColor(last.x() - ratio, last.y() - ratio), edge);
    }
}

TEST_F(MenuBarContentViewTest, AKeyPressedWhileItOpensDoesNothing) {
    show(AgentState::NothingWrong);
    panel_->activateWindow();
    ASSERT_TRUE(waitUntil([this] { return panel_->isActiveWindow(); }));
    QTest::keyClick(panel_->focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(agent_->model().auth().isSignedIn());
    QTest::keyClick(panel_->focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(panel_->focusWidget(), find({"signOut"}));
}

TEST_F(MenuBarContentViewTest, ContentHigherThanTheScreenScrolls) {
    const QFont font = QApplication::font();
    QFont huge = font;
    huge.setPointSizeF(font.pointSizeF() * 3);
    QApplication::setFont(huge);
    show(AgentState::EverythingMissing);
    QApplication::setFont(font);
    EXPECT_EQ(panel_->height(), panel_->screen()->availableGeometry().height());
    EXPECT_TRUE(panel_->verticalScrollBar()->isVisible());
    EXPECT_THAT(test::layoutFaults(*panel_), IsEmpty());
}

// --- Activity ---

TEST_F(MenuBarContentViewTest, BeforeTheFirstScanItShowsNoCount) {
    show(AgentState::NoScansYet);
    EXPECT_EQ(text({"noScans"}), "No scans yet.");
    EXPECT_TRUE(isShown({"noScans"}));
    EXPECT_FALSE(isShown({"messageCount"}));
}

TEST_F(MenuBarContentViewTest, ADayWithoutMessagesShowsASentence) {
    show(AgentState::NothingScanned);
    EXPECT_EQ(text({"messageCount"}), "No messages scanned in the last 24 hours");
    EXPECT_TRUE(isShown({"messageCount"}));
}

TEST_F(MenuBarContentViewTest, OneMessageUsesThePluralForm) {
    show(AgentState::NothingWrong);
    agent_->with.userDefaults.set(tavrin::UserDefaultsKeys::last24hKey, 1);
    Q_EMIT agent_->model().changed();
    EXPECT_EQ(text({"messageCount"}), "1 messages scanned in the last 24 hours");
}

TEST_F(MenuBarContentViewTest, ShowsTheErrorOfTheLastScan) {
    show(AgentState::ScanFailed);
    EXPECT_TRUE(isShown({"scanError"}));
    EXPECT_EQ(text({"scanError"}), "The service is being updated.");
}

TEST_F(MenuBarContentViewTest, UpdatesKeepTheSelectionInTheScanError) {
    show(AgentState::ScanFailed);
    auto* error = find<QTextEdit>({"scanError"});
    EXPECT_THAT(test::tabOrder(*panel_), testing::Contains("scanError"));
    QTest::keyClick(error, Qt::Key_A, Qt::ControlModifier);
    Q_EMIT agent_->model().changed();
    QTest::keyClick(error, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("The service is being updated."));
    QTest::keyClicks(error, QStringLiteral("x"));
    EXPECT_EQ(text({"scanError"}), "The service is being updated.");
}

TEST_F(MenuBarContentViewTest, HidesTheScanErrorWhileCollectionIsBlocked) {
    show(AgentState::ScanFailed);
    agent_->model().collector().setPaused(true);
    EXPECT_EQ(text({"blockedReason"}), "Collection is paused.");
    EXPECT_FALSE(isShown({"scanError"}));
}

TEST_F(MenuBarContentViewTest, TheSpinnerTurnsOnlyDuringAVisibleScan) {
    show(AgentState::Scanning);
    auto* spinner = find<Spinner>({"spinner"});
    EXPECT_TRUE(spinner->isVisible());
    EXPECT_TRUE(spinner->isTurning());
    panel_->hide();
    EXPECT_FALSE(spinner->isTurning());
}

TEST_F(MenuBarContentViewTest, TheSpinnerDoesNotTurnInAMinimisedWindow) {
    show(AgentState::Scanning);
    auto* spinner = find<Spinner>({"spinner"});
    panel_->showMinimized();
    EXPECT_FALSE(spinner->isTurning());
    agent_->with.motionPreference.setReducesMotion(false);
    EXPECT_FALSE(spinner->isTurning());
    panel_->showNormal();
    EXPECT_TRUE(spinner->isTurning());
}

TEST_F(MenuBarContentViewTest, TheAttentionFlashDoesNotUpdateThePanel) {
    show(AgentState::SignedOut);
    const std::string before = text({"messageCount"});
    // This value emits no signal, so only an update of the panel would show it.
    agent_->with.userDefaults.set(tavrin::UserDefaultsKeys::last24hKey, 7);
    agent_->with.clock.advance(AttentionFlash::brandDuration);
    ASSERT_TRUE(agent_->model().attentionFlashOn());
    agent_->with.clock.advance(AttentionFlash::alertDuration);
    ASSERT_FALSE(agent_->model().attentionFlashOn());
    EXPECT_EQ(text({"messageCount"}), before);
    agent_->model().collector().setPaused(true);
    EXPECT_EQ(text({"messageCount"}), "7 messages scanned in the last 24 hours");
}

TEST_F(MenuBarContentViewTest, WithReducedMotionTheSpinnerDoesNotTurn) {
    show(AgentState::Scanning);
    auto* spinner = find<Spinner>({"spinner"});
    agent_->with.motionPreference.setReducesMotion(true);
    EXPECT_TRUE(spinner->isVisible());
    EXPECT_FALSE(spinner->isTurning());
    agent_->with.motionPreference.setReducesMotion(false);
    EXPECT_TRUE(spinner->isTurning());
}

// --- Account ---

TEST_F(MenuBarContentViewTest, SignedOutItShowsTheSignInButton) {
    show(AgentState::SignedOut);
    EXPECT_EQ(text({"blockedReason"}), "Sign in to start collecting.");
    EXPECT_EQ(text({"signIn"}), "Sign in…");
    EXPECT_FALSE(isShown({"signOut"}));
    click({"signIn"});
    EXPECT_TRUE(waitUntil([this] { return agent_->with.browser.isWaiting(); }));
}

TEST_F(MenuBarContentViewTest, WhileSigningInTheButtonIsDisabled) {
    show(AgentState::SigningIn);
    EXPECT_EQ(text({"signIn"}), "Signing in…");
    EXPECT_FALSE(find({"signIn"})->isEnabled());
    EXPECT_TRUE(isShown({"cancelSignIn"}));
}

TEST_F(MenuBarContentViewTest, ACancelledSignInShowsNoError) {
    show(AgentState::SigningIn);
    click({"cancelSignIn"});
    EXPECT_TRUE(waitUntil([this] { return find({"signIn"})->isEnabled(); }));
    EXPECT_EQ(text({"signIn"}), "Sign in…");
    EXPECT_FALSE(isShown({"cancelSignIn"}));
    EXPECT_FALSE(isShown({"signInError"}));
    // A newly opened panel shows no error either.
    panel_.emplace(agent_->model());
    panel_->show();
    EXPECT_FALSE(isShown({"signInError"}));
}

TEST_F(MenuBarContentViewTest, ShowsWhyASignInFailed) {
    show(AgentState::SignInFailed);
    EXPECT_TRUE(isShown({"signInError"}));
    EXPECT_EQ(text({"signInError"}), agent_->model().auth().lastError());
    EXPECT_TRUE(isShown({"signIn"}));
}

TEST_F(MenuBarContentViewTest, TheSignInErrorIsAboveTheAccount) {
    show(AgentState::NothingWrong);
    agent_->with.browser.user = [](const auto&) {
        return test::FakeWebAuthenticationSession::Outcome("orvelagent://callback?error=closed");
    };
    test::runTask(agent_->model().auth().signIn());
    processEvents();
    ASSERT_TRUE(isShown({"signInError"}));
    EXPECT_LT(
        find({"signInError"})->mapTo(&*panel_, QPoint()).y(),
        find({"account"})->mapTo(&*panel_, QPoint()).y());
}

TEST_F(MenuBarContentViewTest, AnAccountWithoutAnAddressShowsSignedIn) {
    show(AgentState::SignedOut);
    agent_->with.service.setAnswer(
        test::FakeService::profilePath, 200, R"({"ok":true,"data":{"uid":"uid-1"}})");
    agent_->with.letTheUserSignIn();
    click({"signIn"});
    EXPECT_TRUE(waitUntil([this] { return agent_->model().auth().isSignedIn(); }));
    EXPECT_EQ(text({"account"}), "Signed in");
}

TEST_F(MenuBarContentViewTest, SigningOutHidesTheAccount) {
    show(AgentState::NothingWrong);
    click({"signOut"});
    processEvents();
    EXPECT_FALSE(agent_->model().auth().isSignedIn());
    EXPECT_TRUE(isShown({"signIn"}));
    EXPECT_FALSE(isShown({"account"}));
}

TEST_F(MenuBarContentViewTest, ALongAddressIsElidedWithAToolTip) {
    show(AgentState::LongTexts);
    EXPECT_TRUE(find<TextLabel>({"account"})->isElided());
    EXPECT_EQ(text({"account"}), agent_->model().auth().accountEmail());
}

TEST_F(MenuBarContentViewTest, MarkupInTheAddressOfTheAccountIsPlainText) {
    const std::string address =
        "<h1>Your session has expired</h1><img src='/dev/null'>Call +1 555 000 0000 and read out "
        "the code";
    show(AgentState::SignedOut);
    agent_->with.service.setAnswer(
        test::FakeService::profilePath,
        200,
        R"({"ok":true,"data":{"uid":"uid-1","email":")" + address + R"("}})");
    agent_->with.letTheUserSignIn();
    click({"signIn"});
    EXPECT_TRUE(waitUntil([&] { return text({"account"}) == address; }));
    EXPECT_EQ(test::toolTipText(*find({"account"})), address);
}

TEST_F(MenuBarContentViewTest, MarkupInErrorsIsPlainText) {
    const std::string error = "<b>Call</b> +1 555 000 0000 <img src='/dev/null'>";
    show(AgentState::NothingWrong);
    agent_->with.service.setAnswer(
        test::FakeService::deviceTokenPath,
        500,
        R"({"ok":false,"code":"internal_error","error":")" + error + R"("})");
    agent_->with.letTheUserSignIn();
    test::runTask(agent_->model().auth().signIn());
    agent_->model().collector().recordAbort(error);
    processEvents();
    EXPECT_TRUE(isShown({"signInError"}));
    EXPECT_THAT(text({"signInError"}), testing::HasSubstr(error));
    EXPECT_TRUE(isShown({"scanError"}));
    EXPECT_EQ(text({"scanError"}), error);
}

TEST_F(MenuBarContentViewTest, WithoutAnAccountItOffersTheWebsite) {
    show(AgentState::NoAccount);
    EXPECT_EQ(text({"noAccountPrompt", "title"}), "No account yet");
    EXPECT_EQ(
        text({"noAccountPrompt", "text"}),
        "That sign-in has no Orvel Agent account. Create one on the website, then sign in here.");
    EXPECT_EQ(text({"openWebsite"}), "Open www.test.example");
    EXPECT_FALSE(isShown({"signInError"}));
    const std::size_t opened = agent_->with.workspace.openedURLs.size();
    click({"openWebsite"});
    ASSERT_EQ(agent_->with.workspace.openedURLs.size(), opened + 1);
    EXPECT_EQ(agent_->with.workspace.openedURLs.back(), "https://www.test.example");
}

// --- Permissions ---

TEST_F(MenuBarContentViewTest, WithoutFullDiskAccessItShowsThePrompt) {
    show(AgentState::FullDiskAccessMissing);
    EXPECT_EQ(text({"blockedReason"}), "Full Disk Access is required to read Messages.");
    EXPECT_EQ(text({"fullDiskAccessPrompt", "title"}), "Full Disk Access needed");
    EXPECT_EQ(
        text({"fullDiskAccessPrompt", "text"}),
        "macOS keeps Messages behind Full Disk Access. Grant it in System Settings, then "
        "relaunch.");
    EXPECT_EQ(text({"fullDiskAccessPrompt", "openSystemSettings"}), "Open System Settings");
    EXPECT_EQ(text({"recheck"}), "Re-check");
    click({"fullDiskAccessPrompt", "openSystemSettings"});
    EXPECT_EQ(
        agent_->with.workspace.openedSettings,
        std::vector{Workspace::SettingsPane::FullDiskAccess});
}

TEST_F(MenuBarContentViewTest, ARecheckDetectsFullDiskAccessWithoutARestart) {
    show(AgentState::FullDiskAccessMissing);
    agent_->grantFullDiskAccess();
    click({"recheck"});
    EXPECT_TRUE(waitUntil([this] { return !isShown({"fullDiskAccessPrompt"}); }));
    EXPECT_FALSE(isShown({"blockedBanner"}));
}

TEST_F(MenuBarContentViewTest, OpeningItDetectsFullDiskAccess) {
    show(AgentState::FullDiskAccessMissing);
    panel_->hide();
    agent_->grantFullDiskAccess();
    panel_->show();
    EXPECT_TRUE(waitUntil([this] { return !isShown({"fullDiskAccessPrompt"}); }));
}

TEST_F(MenuBarContentViewTest, ShowsASettingsErrorUntilTheNextAttempt) {
    show(AgentState::FullDiskAccessMissing);
    agent_->with.workspace.openError =
        tavrin::PlatformError("desktop", 1, "This desktop has no such settings.");
    click({"fullDiskAccessPrompt", "openSystemSettings"});
    processEvents();
    EXPECT_TRUE(isShown({"fullDiskAccessPrompt", "failure"}));
    EXPECT_EQ(text({"fullDiskAccessPrompt", "failure"}), "This desktop has no such settings.");
    EXPECT_THAT(test::layoutFaults(*panel_), IsEmpty());
    agent_->with.workspace.openError.reset();
    click({"fullDiskAccessPrompt", "openSystemSettings"});
    processEvents();
    EXPECT_FALSE(isShown({"fullDiskAccessPrompt", "failure"}));
}

TEST_F(MenuBarContentViewTest, ALateSettingsCallbackAfterDestructionIsIgnored) {
    show(AgentState::FullDiskAccessMissing);
    agent_->with.workspace.openError = tavrin::PlatformError("desktop", 1, "No.");
    click({"fullDiskAccessPrompt", "openSystemSettings"});
    panel_.reset();
    processEvents();
}

TEST_F(MenuBarContentViewTest, WithoutContactsAccessItShowsThePrompt) {
    show(AgentState::ContactsMissing);
    EXPECT_EQ(text({"contactsPrompt", "title"}), "Contacts access needed");
    EXPECT_EQ(
        text({"contactsPrompt", "text"}),
        "Your contacts link phone numbers to the people your assistant already knows. Without it, "
        "almost no conversations can be matched.");
    EXPECT_EQ(
        text({"restartNote"}),
        "Already granted it in System Settings? Orvel Agent only sees the change after a restart.");
    EXPECT_FALSE(isShown({"debuggerHint"}));
    EXPECT_EQ(text({"allowAccess"}), "Allow access…");
    click({"contactsPrompt", "openSystemSettings"});
    EXPECT_EQ(
        agent_->with.workspace.openedSettings, std::vector{Workspace::SettingsPane::Contacts});
    click({"allowAccess"});
    EXPECT_TRUE(waitUntil([this] { return !isShown({"contactsPrompt"}); }));
    EXPECT_EQ(agent_->with.addressBook.questions, 1);
}

TEST_F(MenuBarContentViewTest, QuitAndReopenRelaunches) {
    show(AgentState::ContactsMissing);
    EXPECT_EQ(text({"quitAndReopen"}), "Quit && Reopen");
    EXPECT_EQ(
        QAccessible::queryAccessibleInterface(find({"quitAndReopen"}))->text(QAccessible::Name),
        QStringLiteral("Quit & Reopen"));
    click({"quitAndReopen"});
    processEvents();
    EXPECT_EQ(agent_->with.processControl.relaunches, 1);
}

TEST_F(MenuBarContentViewTest, UnderADebuggerItDoesNotOfferContactsAccess) {
    show(AgentState::UnderDebugger);
    EXPECT_TRUE(isShown({"contactsPrompt"}));
    EXPECT_FALSE(isShown({"allowAccess"}));
    EXPECT_TRUE(isShown({"debuggerHint"}));
    EXPECT_EQ(
        text({"debuggerHint"}),
        "Running under the Xcode debugger — macOS will not show permission prompts. Quit this run "
        "and open the app from Finder.");
}

// --- The bottom row ---

TEST_F(MenuBarContentViewTest, TheVersionOpensTheVersionHistory) {
    show(AgentState::NothingWrong);
    QSignalSpy spy(&*panel_, &MenuBarContentView::versionHistoryRequested);
    EXPECT_EQ(
        find({"version"})->toolTip(), QStringLiteral("What changed in this and earlier versions"));
    click({"version"});
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(agent_->with.applicationFocus.activations, 1);
}

TEST_F(MenuBarContentViewTest, TheVersionIsUnderlinedUnderThePointer) {
    show(AgentState::NothingWrong);
    auto* version = find<TextButton>({"version"});
    EXPECT_FALSE(version->isUnderlined());
    QEnterEvent enter(QPointF(1, 1), QPointF(1, 1), QPointF(1, 1));
    QApplication::sendEvent(version, &enter);
    EXPECT_TRUE(version->isUnderlined());
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(version, &leave);
    EXPECT_FALSE(version->isUnderlined());
    QApplication::sendEvent(version, &enter);
    panel_->hide();
    EXPECT_FALSE(version->isUnderlined());
}

TEST_F(MenuBarContentViewTest, RequestsSettingsAndQuit) {
    show(AgentState::NothingWrong);
    QSignalSpy settings(&*panel_, &MenuBarContentView::settingsRequested);
    QSignalSpy quit(&*panel_, &MenuBarContentView::quitRequested);
    click({"settings"});
    click({"quit"});
    EXPECT_EQ(settings.count(), 1);
    EXPECT_EQ(quit.count(), 1);
}

TEST_F(MenuBarContentViewTest, TabKeyVisitsTheControlsFromTopToBottom) {
    show(AgentState::EverythingMissing);
    EXPECT_THAT(
        test::tabOrder(*panel_),
        ElementsAre(
            "openSystemSettings",
            "recheck",
            "allowAccess",
            "openSystemSettings",
            "quitAndReopen",
            "signIn",
            "version",
            "settings",
            "quit"));
}

} // namespace
} // namespace orvel
