// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/settings/SettingsView.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/base/SourceRevision.h"
#include "core/UserDefaultsKeys.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <QWheelEvent>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SettingsViewTest : public testing::Test {
protected:
    void open() {
        CollectorService::Options options;
        options.sourcePath = "/nonexistent/chat.db";
        model_ = std::make_unique<AppModel>(with_.platform, with_.updatePresenter, options);
        view_ = std::make_unique<SettingsView>(*model_, with_.bundle);
        view_->show();
        processEvents();
    }

    template <typename Widget>
    [[nodiscard]] Widget* find(const char* name) const {
        return view_->findChild<Widget*>(QLatin1String(name));
    }

    [[nodiscard]] QCheckBox* box(const char* name) const { return find<QCheckBox>(name); }
    [[nodiscard]] QPushButton* button(const char* name) const { return find<QPushButton>(name); }
    [[nodiscard]] QComboBox* picker(const char* name) const { return find<QComboBox>(name); }

    /// The displayed text. Empty if the widget is hidden.
    [[nodiscard]] std::string text(const char* name) const {
        const auto* label = find<QLabel>(name);
        return label == nullptr || label->isHidden() ? "" : label->text().toStdString();
    }

    [[nodiscard]] static std::string textOf(const QAbstractButton* button) {
        return button->text().remove(u'&').toStdString();
    }

    void showTab(int index) {
        find<QTabWidget>("tabs")->setCurrentIndex(index);
        processEvents();
    }

    /// Chooses the first entry for index 0, otherwise the last one.
    void pick(const char* name, int index) {
        picker(name)->setFocus();
        picker(name)->showPopup();
        picker(name)->hidePopup();
        QTest::keyClick(picker(name), index == 0 ? Qt::Key_Home : Qt::Key_End);
    }

    [[nodiscard]] std::vector<std::string> choices(const char* name) const {
        std::vector<std::string> choices;
        for (int index = 0; index < picker(name)->count(); ++index) {
            choices.push_back(picker(name)->itemText(index).toStdString());
        }
        return choices;
    }

    TestPlatform with_;
    std::unique_ptr<AppModel> model_;
    std::unique_ptr<SettingsView> view_;
};

} // namespace

TEST_F(SettingsViewTest, HasTwoTabsWithIconsAndAFixedSize) {
    open();
    const auto* tabs = find<QTabWidget>("tabs");
    ASSERT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->tabText(0), QStringLiteral("General"));
    EXPECT_EQ(tabs->tabText(1), QStringLiteral("Privacy"));
    EXPECT_FALSE(tabs->tabIcon(0).isNull());
    EXPECT_FALSE(tabs->tabIcon(1).isNull());
    EXPECT_EQ(view_->size(), QSize(460, 320));
    EXPECT_EQ(view_->minimumSize(), view_->maximumSize());
}

TEST_F(SettingsViewTest, HasTheTextsOfItsControls) {
    open();
    EXPECT_EQ(textOf(box("startAtLogin")), "Start at login");
    EXPECT_EQ(textOf(button("activityLog")), "Open activity log…");
    EXPECT_EQ(textOf(button("versionHistory")), "Version History…");
    EXPECT_EQ(textOf(box("checksAutomatically")), "Check for updates automatically");
    EXPECT_EQ(textOf(button("checkForUpdates")), "Check for updates…");
    EXPECT_EQ(textOf(button("rescan")), "Re-scan from the beginning");
    EXPECT_THAT(
        choices("mode"), ElementsAre("Timing only — no message text", "Timing and message text"));
    EXPECT_THAT(
        choices("scope"),
        ElementsAre(
            "Only with people my assistant already knows",
            "All conversations, including personal and family"));
}

TEST_F(SettingsViewTest, ExplainsWhatTheChoicesMean) {
    open();
    std::vector<std::string> explanations;
    for (const QLabel* label : view_->findChildren<QLabel*>(QStringLiteral("explanation"))) {
        explanations.push_back(label->text().toStdString());
    }
    EXPECT_THAT(
        explanations,
        ElementsAre(
            "Message text lets your assistant use what was actually discussed, not just who you "
            "spoke to and when. Choose timing only to send no text at all.",
            "A conversation is included when someone in it has a phone number or email your "
            "assistant already knows. A number also counts when its card in Contacts has an email "
            "your assistant knows. A group chat is included if anyone in it is. Both choices here "
            "are kept across restarts and updates.",
            "A change here applies to new messages. Re-scan to apply it to earlier ones too. It is "
            "safe: messages already sent are recognized and never duplicated."));
}

TEST_F(SettingsViewTest, ShowsTheVersionAndTheBuild) {
    with_.bundle.setInfo("CFBundleVersion", "17");
    open();
    EXPECT_EQ(text("version"), "1.2.3");
    EXPECT_EQ(text("build"), "17 (" + std::string(sourceRevision()) + ")");
}

TEST_F(SettingsViewTest, ShowsTheCurrentChoices) {
    with_.userDefaults.set("collection.mode", "metadataOnly");
    with_.userDefaults.set("collection.scope", "allThreads");
    with_.userDefaults.set("startAtLogin", true);
    with_.softwareUpdater.setAutomaticallyChecksForUpdates(false);
    open();
    EXPECT_EQ(picker("mode")->currentIndex(), 0);
    EXPECT_EQ(picker("scope")->currentIndex(), 1);
    EXPECT_TRUE(box("startAtLogin")->isChecked());
    EXPECT_FALSE(box("checksAutomatically")->isChecked());
    EXPECT_TRUE(with_.loginItem.changes.empty());
}

TEST_F(SettingsViewTest, StartsWithTheDefaults) {
    open();
    EXPECT_EQ(picker("mode")->currentIndex(), 1);
    EXPECT_EQ(picker("scope")->currentIndex(), 0);
    EXPECT_FALSE(box("startAtLogin")->isChecked());
    EXPECT_TRUE(box("checksAutomatically")->isChecked());
}

TEST_F(SettingsViewTest, EverySwitchChangeUpdatesTheLoginItem) {
    open();
    box("startAtLogin")->click();
    EXPECT_TRUE(model_->startAtLogin());
    box("startAtLogin")->click();
    box("startAtLogin")->click();
    EXPECT_THAT(with_.loginItem.changes, ElementsAre(true, false, true));
}

TEST_F(SettingsViewTest, KeepsTheSwitchIfTheSystemRefuses) {
    with_.loginItem.error = tavrin::PlatformError("login", 1, "Not allowed.");
    open();
    box("startAtLogin")->click();
    processEvents();
    EXPECT_TRUE(box("startAtLogin")->isChecked());
    EXPECT_EQ(text("settingsError"), "");
}

TEST_F(SettingsViewTest, APickedChoiceAppliesAtOnceAndIsSaved) {
    open();
    showTab(1);
    pick("mode", 0);
    pick("scope", 1);
    EXPECT_EQ(model_->mode(), CollectionMode::MetadataOnly);
    EXPECT_EQ(model_->scope(), ThreadScope::AllThreads);
    EXPECT_TRUE(waitUntil([this] {
        return storedValue<std::string>(with_.userDefaults, "collection.mode") == "metadataOnly" &&
               storedValue<std::string>(with_.userDefaults, "collection.scope") == "allThreads";
    }));
}

TEST_F(SettingsViewTest, OnlyTheReScanChangesTheProgress) {
    with_.userDefaults.set(tavrin::UserDefaultsKeys::highKey, 7);
    with_.userDefaults.set(tavrin::UserDefaultsKeys::backfillDoneKey, true);
    open();
    showTab(1);
    pick("mode", 0);
    pick("scope", 1);
    ASSERT_TRUE(waitUntil([this] {
        return storedValue<std::string>(with_.userDefaults, "collection.scope") == "allThreads";
    }));
    EXPECT_EQ(model_->watermarkStore().watermark(), 7);
    EXPECT_TRUE(model_->watermarkStore().isBackfillDone());
    button("rescan")->click();
    EXPECT_TRUE(waitUntil([this] { return !model_->watermarkStore().isBackfillDone(); }));
}

TEST_F(SettingsViewTest, ShowsTheReScanNoteUntilItIsClosed) {
    open();
    showTab(1);
    EXPECT_EQ(text("rescanNote"), "");
    button("rescan")->click();
    EXPECT_EQ(text("rescanNote"), "The next scan starts from the beginning.");
    view_->hide();
    view_->show();
    EXPECT_EQ(text("rescanNote"), "");
}

TEST_F(SettingsViewTest, ShowsWhyTheReScanFailed) {
    open();
    showTab(1);
    with_.userDefaults.setFailsWrites(true);
    button("rescan")->click();
    EXPECT_TRUE(waitUntil([this] { return !text("settingsError").empty(); }));
    EXPECT_THAT(text("settingsError"), HasSubstr("The re-scan could not be prepared"));
    EXPECT_EQ(text("rescanNote"), "");
}

TEST_F(SettingsViewTest, ShowsBothTheChoiceAndTheReScanError) {
    open();
    showTab(1);
    with_.userDefaults.setFailsWrites(true);
    pick("mode", 0);
    button("rescan")->click();
    EXPECT_TRUE(waitUntil([this] { return model_->settingsError() && model_->rescanError(); }));
    EXPECT_EQ(
        text("settingsError"),
        model_->settingsError().value() + "\n" + model_->rescanError().value());
    with_.userDefaults.setFailsWrites(false);
    button("rescan")->click();
    EXPECT_TRUE(waitUntil([this] { return !model_->rescanError(); }));
    EXPECT_EQ(text("settingsError"), model_->settingsError());
    EXPECT_EQ(text("rescanNote"), "The next scan starts from the beginning.");
}

TEST_F(SettingsViewTest, ShowsASaveErrorUntilASaveSucceeds) {
    open();
    showTab(1);
    with_.userDefaults.setFailsWrites(true);
    pick("mode", 0);
    EXPECT_TRUE(waitUntil([this] { return !text("settingsError").empty(); }));
    EXPECT_EQ(text("settingsError"), model_->settingsError());
    EXPECT_EQ(picker("mode")->currentIndex(), 0);
    with_.userDefaults.setFailsWrites(false);
    pick("mode", 1);
    EXPECT_TRUE(waitUntil([this] { return text("settingsError").empty(); }));
}

TEST_F(SettingsViewTest, ScrollingPastAPickerChangesNothing) {
    open();
    showTab(1);
    for (const char* name : {"mode", "scope"}) {
        const int before = picker(name)->currentIndex();
        for (const int turn : {120, -120}) {
            QWheelEvent wheel(
                QPointF(5, 5),
                picker(name)->mapToGlobal(QPointF(5, 5)),
                QPoint(),
                QPoint(0, turn),
                Qt::NoButton,
                Qt::NoModifier,
                Qt::NoScrollPhase,
                false);
            QApplication::sendEvent(picker(name), &wheel);
            EXPECT_EQ(picker(name)->currentIndex(), before) << name;
        }
    }
}

TEST_F(SettingsViewTest, RequestsTheOtherWindows) {
    open();
    const QSignalSpy log(view_.get(), &SettingsView::activityLogRequested);
    const QSignalSpy history(view_.get(), &SettingsView::versionHistoryRequested);
    button("activityLog")->click();
    EXPECT_EQ(log.count(), 1);
    EXPECT_EQ(history.count(), 0);
    button("versionHistory")->click();
    EXPECT_EQ(history.count(), 1);
}

TEST_F(SettingsViewTest, SwitchesAutomaticChecks) {
    open();
    box("checksAutomatically")->click();
    EXPECT_FALSE(with_.softwareUpdater.automaticallyChecksForUpdates());
    box("checksAutomatically")->click();
    EXPECT_TRUE(with_.softwareUpdater.automaticallyChecksForUpdates());
}

TEST_F(SettingsViewTest, ShowsThatTheAutomaticChecksSwitchCannotBeSaved) {
    open();
    with_.softwareUpdater.setSaveFailure("Could not save the agent's settings: full.");
    box("checksAutomatically")->click();
    EXPECT_FALSE(box("checksAutomatically")->isChecked());
    EXPECT_EQ(text("settingsError"), "Could not save the agent's settings: full.");
    with_.softwareUpdater.setSaveFailure(std::nullopt);
    box("checksAutomatically")->click();
    EXPECT_EQ(text("settingsError"), "");
}

TEST_F(SettingsViewTest, AnUpdateCheckActivatesTheApplication) {
    open();
    button("checkForUpdates")->click();
    EXPECT_EQ(with_.softwareUpdater.requestedCheckCount(), 1);
    EXPECT_EQ(with_.applicationFocus.activations, 1);
}

TEST_F(SettingsViewTest, TheSameButtonInstallsAWaitingUpdate) {
    open();
    with_.softwareUpdater.setOffer(SoftwareUpdate{"2.0", "2.0", "Better.", 1000});
    with_.softwareUpdater.passADay();
    EXPECT_EQ(textOf(button("checkForUpdates")), "Install available update…");
    button("checkForUpdates")->click();
    EXPECT_EQ(with_.softwareUpdater.requestedCheckCount(), 1);
    EXPECT_EQ(textOf(button("checkForUpdates")), "Check for updates…");
}

TEST_F(SettingsViewTest, ShowsWhyThisBuildCannotUpdateItself) {
    const auto keyError =
        "No update signing key is configured in this build, so updates cannot be verified. This "
        "build will not self-update.";
    with_.bundle.setInfo("SUPublicEDKey", "");
    open();
    EXPECT_EQ(text("configurationError"), keyError);
    EXPECT_FALSE(button("checkForUpdates")->isEnabled());
    EXPECT_FALSE(box("checksAutomatically")->isEnabled());
    EXPECT_FALSE(box("checksAutomatically")->isChecked());
}

TEST_F(SettingsViewTest, ShowsThatTheFeedIsNotHTTPS) {
    with_.bundle.setInfo("SUFeedURL", "http://updates.test.example/appcast.xml");
    open();
    EXPECT_EQ(
        text("configurationError"),
        "The update feed URL is missing or not HTTPS. This build will not self-update.");
    EXPECT_FALSE(button("checkForUpdates")->isEnabled());
}

TEST_F(SettingsViewTest, ShowsNoErrorIfThisBuildCanUpdateItself) {
    open();
    EXPECT_EQ(find<QLabel>("configurationError"), nullptr);
    EXPECT_TRUE(button("checkForUpdates")->isEnabled());
}

TEST_F(SettingsViewTest, TabKeyVisitsTheControlsOfEachTabInOrder) {
    open();
    view_->activateWindow();
    box("startAtLogin")->setFocus();
    for (const char* name :
         {"version",
          "build",
          "activityLog",
          "versionHistory",
          "checksAutomatically",
          "checkForUpdates"}) {
        QTest::keyClick(view_.get(), Qt::Key_Tab);
        EXPECT_EQ(view_->focusWidget()->objectName(), QLatin1String(name));
    }
    showTab(1);
    picker("mode")->setFocus();
    for (const char* name : {"scope", "rescan"}) {
        QTest::keyClick(view_.get(), Qt::Key_Tab);
        EXPECT_EQ(view_->focusWidget()->objectName(), QLatin1String(name));
    }
}

TEST_F(SettingsViewTest, TheKeyboardSelectsAndCopiesTheBuild) {
    open();
    auto* build = find<QLabel>("build");
    build->setFocus();
    QTest::keyClick(build, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(build, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), text("build"));
}

TEST_F(SettingsViewTest, EveryControlHasAnAccessibleName) {
    open();
    const auto nameOf = [](QWidget* widget) {
        return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name).toStdString();
    };
    EXPECT_EQ(nameOf(box("startAtLogin")), "Start at login");
    EXPECT_EQ(nameOf(find<QLabel>("build")), text("build"));
    showTab(1);
    // The accessible name of a combo box is the current choice. Its label relation gives the
    // purpose.
    for (const auto& [picked, label] :
         {std::pair("mode", "Collect"), std::pair("scope", "Conversations")}) {
        const auto relations =
            QAccessible::queryAccessibleInterface(picker(picked))->relations(QAccessible::Label);
        ASSERT_EQ(relations.size(), 1) << picked;
        EXPECT_EQ(relations[0].first->text(QAccessible::Name).toStdString(), label);
    }
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(picker("mode"))
                     ->text(QAccessible::Description)
                     .isEmpty());
}

TEST_F(SettingsViewTest, ShortcutsAreUniqueWithinATab) {
    open();
    QStringList keys;
    for (const QAbstractButton* each : view_->findChildren<QAbstractButton*>()) {
        if (each->text().contains(u'&')) {
            keys.push_back(each->text().section(u'&', 1).left(1).toLower());
        }
    }
    for (const QLabel* label : view_->findChildren<QLabel*>()) {
        if (label->buddy() != nullptr && label->text().contains(u'&')) {
            keys.push_back(label->text().section(u'&', 1).left(1).toLower());
        }
    }
    EXPECT_EQ(keys.size(), 8);
    EXPECT_EQ(keys.removeDuplicates(), 0);
}

class SettingsViewLookTest : public SettingsViewTest, public testing::WithParamInterface<Look> {};

TEST_P(SettingsViewLookTest, NoTextIsCutInAnyState) {
    const DesktopLook look(GetParam());
    with_.bundle.setInfo("SUPublicEDKey", "");
    open();
    EXPECT_THAT(layoutFaults(*view_), IsEmpty());
    showTab(1);
    EXPECT_THAT(layoutFaults(*view_), IsEmpty());
    if (GetParam().textPercent == 100) {
        EXPECT_EQ(view_->size(), QSize(460, 320));
    }
    button("rescan")->click();
    processEvents();
    EXPECT_THAT(layoutFaults(*view_), IsEmpty());
    with_.userDefaults.setFailsWrites(true);
    pick("mode", 0);
    ASSERT_TRUE(waitUntil([this] { return !text("settingsError").empty(); }));
    processEvents();
    EXPECT_THAT(layoutFaults(*view_), IsEmpty());
    showTab(0);
    EXPECT_THAT(layoutFaults(*view_), IsEmpty());
}

TEST_P(SettingsViewLookTest, AllTabsHaveTheSameSize) {
    const DesktopLook look(GetParam());
    open();
    const QSize before = view_->size();
    showTab(1);
    EXPECT_EQ(view_->size(), before);
    button("rescan")->click();
    processEvents();
    EXPECT_EQ(view_->size(), before);
}

TEST_P(SettingsViewLookTest, GrowsAndShrinksWithTheText) {
    open();
    const QSize before = view_->size();
    {
        const DesktopLook look(GetParam());
        processEvents();
        EXPECT_THAT(layoutFaults(*view_), IsEmpty());
        if (GetParam().textPercent == 100) {
            EXPECT_EQ(view_->size(), before);
        }
    }
    processEvents();
    EXPECT_EQ(view_->size(), before);
}

INSTANTIATE_TEST_SUITE_P(Looks, SettingsViewLookTest, testing::ValuesIn(allLooks()), nameOfLook);

} // namespace orvel::test
