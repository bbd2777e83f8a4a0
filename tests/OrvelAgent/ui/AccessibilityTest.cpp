// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/Accessibility.h"

#include "OrvelAgent/ui/controls/Badge.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Spinner.h"
#include "OrvelAgent/ui/controls/SymbolLabel.h"
#include "OrvelAgent/ui/log/LogWindow.h"
#include "OrvelAgent/ui/panel/BlockedBanner.h"
#include "OrvelAgent/ui/panel/ContactsQuestion.h"
#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "OrvelAgent/ui/panel/Prompt.h"
#include "OrvelAgent/ui/settings/SettingsView.h"
#include "OrvelAgent/ui/update/ChangeRow.h"
#include "OrvelAgent/ui/update/ReleaseSection.h"
#include "OrvelAgent/ui/update/UpdateWindow.h"
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"
#include "tests/OrvelAgent/ui/log/LogFixture.h"
#include "tests/support/RunTask.h"
#include "tests/support/SampleAgent.h"
#include "tests/support/widgets/AccessibleTree.h"

#include <QAccessible>
#include <QDialog>
#include <QPushButton>
#include <QTabWidget>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace orvel::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

QAccessible::Role roleOf(QWidget& widget) {
    return QAccessible::queryAccessibleInterface(&widget)->role();
}

std::string nameOf(QWidget& widget) {
    return QAccessible::queryAccessibleInterface(&widget)->text(QAccessible::Name).toStdString();
}

/// Shows the window and checks its role, its name and the accessibility of its content.
void expectAccessible(QWidget& window, QAccessible::Role role, const std::string& name) {
    window.show();
    processEvents();
    EXPECT_EQ(roleOf(window), role);
    EXPECT_EQ(nameOf(window), name);
    EXPECT_THAT(accessibilityFaults(window), IsEmpty());
}

class PanelAccessibilityTest : public testing::TestWithParam<AgentState> {};

class LogWindowAccessibilityTest : public LogFixture {
protected:
    LogWindow window_{store_, clock_, subsystems()};
};

std::string nameOfState(const testing::TestParamInfo<AgentState>& info) {
    std::string result = name(info.param);
    std::erase(result, '-');
    return result;
}

void addHistory(FakeBundle& bundle) {
    bundle.setInfo("CFBundleShortVersionString", "1.1.0");
    bundle.setResource(
        "CHANGELOG.md",
        "# Changelog\n\n## [1.1.0] - 2026-03-04\n\n### Added\n- A thing.\n\n### Fixed\n- "
        "Another.\n\n"
        "## [1.0.0] - 2026-01-02\n");
}

} // namespace

TEST_P(PanelAccessibilityTest, EverythingShownHasARoleAndAName) {
    SampleAgent agent(GetParam());
    MenuBarContentView panel(agent.model());
    panel.setWindowTitle(QStringLiteral("Orvel Agent"));
    expectAccessible(panel, QAccessible::Window, "Orvel Agent");
}

INSTANTIATE_TEST_SUITE_P(
    States, PanelAccessibilityTest, testing::ValuesIn(allAgentStates), nameOfState);

TEST(AccessibilityTest, EverythingInTheSettingsHasARoleAndAName) {
    SampleAgent agent(AgentState::NothingWrong);
    SettingsView view(agent.model(), agent.with.bundle);
    view.setWindowTitle(QStringLiteral("Orvel Agent Settings"));
    auto* tabs = view.findChild<QTabWidget*>();
    for (int tab = 0; tab < tabs->count(); ++tab) {
        tabs->setCurrentIndex(tab);
        expectAccessible(view, QAccessible::Window, "Orvel Agent Settings");
    }
}

TEST(AccessibilityTest, EverythingInTheVersionHistoryHasARoleAndAName) {
    FakeBundle bundle;
    VersionHistoryWindow empty(bundle);
    expectAccessible(empty, QAccessible::Window, "Orvel Agent Version History");
    addHistory(bundle);
    VersionHistoryWindow window(bundle);
    expectAccessible(window, QAccessible::Window, "Orvel Agent Version History");
}

TEST_F(LogWindowAccessibilityTest, EverythingHasARoleAndAName) {
    expectAccessible(window_, QAccessible::Window, "Orvel Agent Activity");
    logLines(2);
    refresh();
    expectAccessible(window_, QAccessible::Window, "Orvel Agent Activity");
}

TEST(AccessibilityTest, EverythingInADialogHasARoleAndAName) {
    ContactsQuestion question(QStringLiteral("Orvel Agent"), {});
    question.setAttribute(Qt::WA_DeleteOnClose, false);
    expectAccessible(question, QAccessible::Dialog, "Orvel Agent");
    UpdateWindow update;
    update.setPage(
        {QStringLiteral("Downloading"),
         QStringLiteral("1 of 2"),
         QStringLiteral("Notes"),
         50,
         {UpdateWindow::Button::Install, UpdateWindow::Button::Skip}},
        false);
    expectAccessible(update, QAccessible::Dialog, "Software Update");
}

TEST(AccessibilityTest, WidgetsInThePanelHaveTheRightRoles) {
    SampleAgent agent(AgentState::EverythingMissing);
    MenuBarContentView panel(agent.model());
    auto& banner = *panel.findChild<BlockedBanner*>();
    EXPECT_EQ(roleOf(banner), QAccessible::Notification);
    auto& symbol = *banner.findChild<SymbolLabel*>();
    EXPECT_EQ(roleOf(symbol), QAccessible::Graphic);
    EXPECT_EQ(nameOf(symbol), "Warning");
    auto& prompt = *panel.findChild<Prompt*>(QStringLiteral("fullDiskAccessPrompt"));
    EXPECT_EQ(roleOf(prompt), QAccessible::Grouping);
    EXPECT_EQ(nameOf(prompt), "Full Disk Access needed");
    auto& spinner = *panel.findChild<Spinner*>();
    EXPECT_EQ(roleOf(spinner), QAccessible::Animation);
    EXPECT_EQ(nameOf(spinner), "Scanning");
    EXPECT_EQ(roleOf(*panel.findChild<Divider*>()), QAccessible::Separator);
}

TEST(AccessibilityTest, WidgetsInTheVersionHistoryHaveTheRightRoles) {
    FakeBundle bundle;
    addHistory(bundle);
    VersionHistoryWindow window(bundle);
    auto& release = *window.findChild<ReleaseSection*>();
    EXPECT_EQ(roleOf(release), QAccessible::Grouping);
    EXPECT_EQ(nameOf(release), "Version 1.1.0");
    auto& change = *release.findChild<ChangeRow*>();
    EXPECT_EQ(roleOf(change), QAccessible::Grouping);
    EXPECT_EQ(nameOf(change), "New");
    auto& badge = *change.findChild<Badge*>();
    EXPECT_EQ(roleOf(badge), QAccessible::StaticText);
    EXPECT_EQ(nameOf(badge), "New");
}

// The tests above rely on `accessibilityFaults`; these check that it finds faults.

TEST(AccessibleTreeTest, FindsAWidgetWithoutARole) {
    QWidget window;
    window.setWindowTitle(QStringLiteral("A window"));
    window.show();
    EXPECT_THAT(
        accessibilityFaults(window), ElementsAre(HasSubstr("A window\", Client: is nothing")));
}

TEST(AccessibleTreeTest, FindsAControlWithoutAName) {
    QDialog window;
    window.setWindowTitle(QStringLiteral("A window"));
    auto* button = new QPushButton(&window);
    window.show();
    EXPECT_THAT(accessibilityFaults(window), ElementsAre(HasSubstr("Button: has no name")));
    button->hide();
    EXPECT_THAT(accessibilityFaults(window), IsEmpty());
    button->show();
    button->setText(QStringLiteral("A button"));
    EXPECT_THAT(accessibilityFaults(window), IsEmpty());
}

} // namespace orvel::test
