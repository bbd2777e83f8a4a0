// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/UpdateWindowPresenter.h"

#include "OrvelAgent/ui/update/UpdateWindow.h"
#include "OrvelAgent/update/UpdaterService.h"
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/support/AppcastBuilder.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UpdateSigner.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeApplicationFocus.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeMotionPreference.h"
#include "tests/support/fakes/FakeProcessControl.h"
#include "tests/support/fakes/FakeSoftwareUpdater.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/widgets/DesktopLook.h"
#include "tests/support/widgets/WidgetLayout.h"

#include <QAccessible>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using Choice = SoftwareUpdater::Choice;
using Presenter = UpdateWindowPresenter;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const SoftwareUpdate newer{"2.0", "2.0 Spring", "Better <b>notes</b>.", 12'300'000};

/// Records the answers.
class RecordingUpdater final : public SoftwareUpdater {
public:
    std::vector<Choice> choices;
    int cancellations = 0;
    int attentions = 0;

    void start(Feed, UpdateObserver&, UpdatePresenter&) override {}
    void stop() override {}
    void checkForUpdates() override {}
    void choose(Choice choice) override {
        if (choice == Choice::Cancel) {
            ++cancellations;
        } else {
            choices.push_back(choice);
        }
    }
    void noteUserAttention() override { ++attentions; }
    [[nodiscard]] bool automaticallyChecksForUpdates() const override { return true; }
    void setAutomaticallyChecksForUpdates(bool) override {}
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override { return {}; }
};

class UpdateWindowPresenterTest : public testing::Test {
protected:
    UpdateWindowPresenterTest() {
        bundle_.setInfo("CFBundleDisplayName", "Orvel Agent");
        bundle_.setInfo("CFBundleShortVersionString", "1.2.3");
        bundle_.setInfo("SUFeedURL", "https://h/feed.xml");
    }

    [[nodiscard]] bool isShown() const {
        return presenter().window() != nullptr && presenter().window()->isVisible();
    }

    [[nodiscard]] virtual const UpdateWindowPresenter& presenter() const = 0;

    template <typename Widget>
    [[nodiscard]] Widget* find(const char* name) const {
        return presenter().window()->findChild<Widget*>(QLatin1String(name));
    }

    /// Empty if the widget is hidden.
    [[nodiscard]] std::string text(const char* name) const {
        const auto* label = find<QLabel>(name);
        return label->isHidden() ? "" : label->text().toStdString();
    }

    [[nodiscard]] QPushButton* button(const char* name) const { return find<QPushButton>(name); }

    /// The visible buttons, in layout order.
    [[nodiscard]] std::vector<std::string> buttons() const {
        std::vector<std::string> texts;
        for (const char* name : {"skip", "later", "cancel", "install", "ok"}) {
            if (!button(name)->isHidden()) {
                texts.push_back(button(name)->text().remove(u'&').toStdString());
            }
        }
        return texts;
    }

    /// In percent. -1 if the duration is unknown, -2 if the bar is hidden.
    [[nodiscard]] int progress() const {
        const auto* bar = find<QProgressBar>("progress");
        if (bar->isHidden()) {
            return -2;
        }
        return bar->maximum() == 0 ? -1 : bar->value();
    }

    FakeBundle bundle_;
    FakeWorkspace workspace_;
    FakeMotionPreference motion_;
    FakeApplicationFocus focus_;
    FakeProcessControl process_;
    UpdateWindowPresenter::Desktop desktop_{workspace_, motion_, focus_, process_};
};

class UpdateWindowTest : public UpdateWindowPresenterTest {
protected:
    [[nodiscard]] const UpdateWindowPresenter& presenter() const override { return presenter_; }

    /// Shows an offer and chooses "Install".
    void install() {
        presenter_.show(Presenter::Offer{newer});
        button("install")->click();
    }

    RecordingUpdater updater_;
    UpdateWindowPresenter presenter_{updater_, desktop_, bundle_};
};

} // namespace

TEST_F(UpdateWindowTest, CreatesNoWindowBeforeTheFirstStage) {
    EXPECT_EQ(presenter_.window(), nullptr);
}

TEST_F(UpdateWindowTest, ShowsARunningCheckThatCanBeCancelled) {
    presenter_.show(Presenter::Checking());
    EXPECT_TRUE(isShown());
    EXPECT_EQ(focus_.activations, 1);
    EXPECT_EQ(text("title"), "Checking for updates…");
    EXPECT_EQ(text("text"), "");
    EXPECT_EQ(progress(), -1);
    EXPECT_THAT(buttons(), ElementsAre("Cancel"));
    button("cancel")->click();
    EXPECT_EQ(updater_.cancellations, 1);
    EXPECT_FALSE(isShown());
}

TEST_F(UpdateWindowTest, WithReducedMotionTheBusyBarIsHidden) {
    motion_.setReducesMotion(true);
    presenter_.show(Presenter::Checking());
    EXPECT_EQ(progress(), -2);
    presenter_.show(Presenter::Offer{newer});
    presenter_.show(Presenter::Download{1, 4});
    EXPECT_EQ(progress(), 25);
    presenter_.show(Presenter::Verification());
    EXPECT_EQ(progress(), -2);
}

TEST_F(UpdateWindowTest, ShowsThatTheVersionIsCurrent) {
    presenter_.show(Presenter::Checking());
    presenter_.show(Presenter::NoUpdate());
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("title"), "You are up to date.");
    EXPECT_EQ(text("text"), "Orvel Agent 1.2.3 is the newest version.");
    EXPECT_EQ(progress(), -2);
    EXPECT_THAT(buttons(), ElementsAre("OK"));
    button("ok")->click();
    EXPECT_FALSE(isShown());
    EXPECT_EQ(updater_.cancellations, 0);
    EXPECT_THAT(updater_.choices, IsEmpty());
}

TEST_F(UpdateWindowTest, AnOfferShowsVersionsSizeAndNotes) {
    presenter_.show(Presenter::Offer{newer});
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("title"), "A new version of Orvel Agent is available.");
    EXPECT_EQ(
        text("text"),
        "Version 2.0 Spring can be installed now; you have version 1.2.3. The download is 12.3 "
        "MB.");
    EXPECT_THAT(buttons(), ElementsAre("Skip this version", "Later", "Install"));
    EXPECT_EQ(progress(), -2);
}

TEST_F(UpdateWindowTest, ShowsTextsOfTheFeedAsPlainText) {
    SoftwareUpdate hostile = newer;
    hostile.displayVersion = "<img src=x>%1";
    presenter_.show(Presenter::Offer{hostile});
    const auto* notes = find<QPlainTextEdit>("notes");
    EXPECT_EQ(notes->toPlainText(), QStringLiteral("Better <b>notes</b>."));
    EXPECT_TRUE(notes->isReadOnly());
    EXPECT_THAT(text("text"), HasSubstr("Version <img src=x>%1 can be installed now"));
    for (const QLabel* label : presenter_.window()->findChildren<QLabel*>()) {
        EXPECT_EQ(label->textFormat(), Qt::PlainText);
    }
}

TEST_F(UpdateWindowTest, HidesTheNotesIfThereAreNone) {
    SoftwareUpdate quiet = newer;
    quiet.releaseNotes.clear();
    presenter_.show(Presenter::Offer{quiet});
    EXPECT_TRUE(find<QPlainTextEdit>("notes")->isHidden());
}

TEST_F(UpdateWindowTest, AGentleOfferOpensNoWindowUntilRequested) {
    presenter_.show(Presenter::Offer{newer, true});
    processEvents();
    EXPECT_FALSE(isShown());
    EXPECT_EQ(focus_.activations, 0);
    EXPECT_EQ(updater_.attentions, 0);
    presenter_.showInFocus();
    processEvents();
    EXPECT_TRUE(isShown());
    EXPECT_EQ(focus_.activations, 1);
    EXPECT_EQ(text("title"), "A new version of Orvel Agent is available.");
    EXPECT_GE(updater_.attentions, 1);
}

TEST_F(UpdateWindowTest, PassesTheAnswersToTheUpdater) {
    presenter_.show(Presenter::Offer{newer});
    button("install")->click();
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install));
    presenter_.show(Presenter::Offer{newer});
    button("later")->click();
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install, Choice::Later));
    EXPECT_FALSE(isShown());
    presenter_.show(Presenter::Offer{newer});
    button("skip")->click();
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install, Choice::Later, Choice::Skip));
    EXPECT_FALSE(isShown());
}

TEST_F(UpdateWindowTest, ClosingTheOfferMeansLater) {
    presenter_.show(Presenter::Offer{newer});
    presenter_.window()->close();
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Later));
    for (const QKeySequence& keys :
         {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)}) {
        updater_.choices.clear();
        presenter_.show(Presenter::Offer{newer});
        ASSERT_TRUE(waitUntil([this] { return presenter_.window()->isActiveWindow(); }));
        QTest::keySequence(presenter_.window()->focusWidget(), keys);
        EXPECT_THAT(updater_.choices, ElementsAre(Choice::Later));
        EXPECT_FALSE(isShown());
    }
}

TEST_F(UpdateWindowTest, ShowsADownloadThatCanBeCancelled) {
    install();
    presenter_.show(Presenter::Download{0, 12'300'000});
    EXPECT_EQ(text("title"), "Downloading version 2.0 Spring…");
    EXPECT_EQ(text("text"), "0 bytes of 12.3 MB");
    EXPECT_EQ(progress(), 0);
    EXPECT_THAT(buttons(), ElementsAre("Cancel"));
    presenter_.show(Presenter::Download{6'150'000, 12'300'000});
    EXPECT_EQ(text("text"), "6.2 MB of 12.3 MB");
    EXPECT_EQ(progress(), 50);
    button("cancel")->click();
    EXPECT_EQ(updater_.cancellations, 1);
    EXPECT_FALSE(isShown());
}

TEST_F(UpdateWindowTest, ClosingTheDownloadCancelsIt) {
    install();
    presenter_.show(Presenter::Download{0, 1'000});
    presenter_.window()->close();
    EXPECT_EQ(updater_.cancellations, 1);
}

TEST_F(UpdateWindowTest, AcceptsAnUpdateWithoutALength) {
    install();
    presenter_.show(Presenter::Download{0, 0});
    EXPECT_EQ(progress(), 0);
    presenter_.show(Presenter::Download{10, 5});
    EXPECT_EQ(progress(), 100);
}

TEST_F(UpdateWindowTest, InstallsWithoutASecondQuestion) {
    install();
    presenter_.show(Presenter::Download{1'000, 1'000});
    presenter_.show(Presenter::Verification());
    EXPECT_EQ(text("title"), "Verifying version 2.0 Spring…");
    EXPECT_EQ(progress(), -1);
    EXPECT_THAT(buttons(), IsEmpty());
    presenter_.show(Presenter::ReadyToInstall{newer});
    EXPECT_EQ(text("title"), "Installing version 2.0 Spring…");
    EXPECT_THAT(buttons(), IsEmpty());
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install, Choice::Install));
}

TEST_F(UpdateWindowTest, ClosingDuringVerificationMeansLater) {
    install();
    presenter_.show(Presenter::Download{1'000, 1'000});
    presenter_.show(Presenter::Verification());
    presenter_.window()->close();
    EXPECT_EQ(updater_.cancellations, 0);
    presenter_.show(Presenter::ReadyToInstall{newer});
    EXPECT_FALSE(isShown());
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install, Choice::Later));

    install();
    presenter_.show(Presenter::ReadyToInstall{newer});
    EXPECT_EQ(updater_.choices.back(), Choice::Install);
}

TEST_F(UpdateWindowTest, ShowsARefusalUnchanged) {
    install();
    presenter_.show(Presenter::Verification());
    presenter_.show(
        Presenter::Refusal{"The signature of the update is not valid. It was not installed."});
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("title"), "Orvel Agent could not be updated.");
    EXPECT_EQ(text("text"), "The signature of the update is not valid. It was not installed.");
    EXPECT_THAT(buttons(), ElementsAre("OK"));
    button("ok")->click();
    EXPECT_FALSE(isShown());
}

TEST_F(UpdateWindowTest, ARefusalDoesNotReopenAClosedWindow) {
    install();
    presenter_.show(Presenter::Verification());
    presenter_.window()->close();
    presenter_.show(
        Presenter::Refusal{"The signature of the update is not valid. It was not installed."});
    EXPECT_FALSE(isShown());

    install();
    presenter_.show(Presenter::Verification());
    presenter_.show(Presenter::ReadyToInstall{newer});
    presenter_.window()->close();
    presenter_.show(Presenter::Refusal{"The update could not be put in place."});
    EXPECT_FALSE(isShown());

    presenter_.show(Presenter::Checking());
    presenter_.show(Presenter::Refusal{"The update feed could not be loaded."});
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("text"), "The update feed could not be loaded.");
}

TEST_F(UpdateWindowTest, AClosedUpdateThatIsRequestedAgainShowsItsRefusal) {
    install();
    presenter_.show(Presenter::Verification());
    presenter_.window()->close();
    presenter_.showInFocus();
    EXPECT_EQ(text("title"), "Verifying version 2.0 Spring…");
    presenter_.show(
        Presenter::Refusal{"The signature of the update is not valid. It was not installed."});
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("text"), "The signature of the update is not valid. It was not installed.");
    EXPECT_EQ(progress(), -2);
    EXPECT_THAT(buttons(), ElementsAre("OK"));
}

TEST_F(UpdateWindowTest, AClosedUpdateThatIsRequestedAgainIsInstalledWhenReady) {
    install();
    presenter_.show(Presenter::Verification());
    presenter_.window()->close();
    presenter_.showInFocus();
    presenter_.show(Presenter::ReadyToInstall{newer});
    EXPECT_TRUE(isShown());
    EXPECT_EQ(text("title"), "Installing version 2.0 Spring…");
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install, Choice::Install));
}

TEST_F(UpdateWindowTest, ShowsThePackageInTheFileManagerWithInstructions) {
    install();
    presenter_.revealPackage("/home/one/Downloads/agent.deb");
    processEvents();
    EXPECT_THAT(workspace_.revealedFiles, ElementsAre("/home/one/Downloads/agent.deb"));
    EXPECT_EQ(text("title"), "Version 2.0 Spring is ready to be installed.");
    EXPECT_EQ(
        text("text"),
        "The package has been verified and is shown in the file manager. Open it to install it, "
        "then start Orvel Agent again.\n/home/one/Downloads/agent.deb");
    EXPECT_THAT(buttons(), ElementsAre("OK"));
    EXPECT_EQ(process_.terminations, 0);
}

TEST_F(UpdateWindowTest, ShowsThePathOfAPackageThatCannotBeRevealed) {
    workspace_.openError = tavrin::PlatformError("desktop", 1, "No file manager.");
    install();
    presenter_.revealPackage("/home/one/Downloads/agent.deb");
    processEvents();
    EXPECT_EQ(
        text("text"),
        "The package has been verified, but could not be shown in the file manager. Open it to "
        "install it, then start Orvel Agent again.\n/home/one/Downloads/agent.deb");
}

TEST_F(UpdateWindowTest, RelaunchSchedulesARestartAndQuits) {
    install();
    presenter_.relaunch();
    EXPECT_EQ(process_.relaunches, 1);
    EXPECT_EQ(process_.terminations, 1);
}

TEST_F(UpdateWindowTest, AKeyPressedWhileTheOfferOpensInstallsNothing) {
    SoftwareUpdate quiet = newer;
    quiet.releaseNotes.clear();
    for (const SoftwareUpdate& update : {newer, quiet}) {
        presenter_.show(Presenter::Checking());
        processEvents();
        ASSERT_EQ(presenter_.window()->focusWidget(), button("cancel"));
        presenter_.show(Presenter::Offer{update});
        processEvents();
        for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter}) {
            QTest::keyClick(presenter_.window()->focusWidget(), key);
        }
        EXPECT_THAT(updater_.choices, IsEmpty());
        EXPECT_TRUE(isShown());
    }
    presenter_.window()->hide();
    presenter_.window()->present();
    QTest::keyClick(presenter_.window()->focusWidget(), Qt::Key_Return);
    EXPECT_THAT(updater_.choices, IsEmpty());
}

TEST_F(UpdateWindowTest, ARequestedOfferFocusesTheUsualAnswer) {
    presenter_.show(Presenter::Offer{newer, true});
    presenter_.showInFocus();
    processEvents();
    EXPECT_EQ(presenter_.window()->focusWidget(), button("install"));
    QTest::keyClick(presenter_.window(), Qt::Key_Return);
    EXPECT_THAT(updater_.choices, ElementsAre(Choice::Install));
}

TEST_F(UpdateWindowTest, RestoresAMinimisedWindow) {
    presenter_.show(Presenter::Offer{newer});
    presenter_.window()->showMinimized();
    presenter_.showInFocus();
    EXPECT_FALSE(presenter_.window()->isMinimized());
}

TEST_F(UpdateWindowTest, KeepsTheUsersHeightWhileOpen) {
    presenter_.show(Presenter::Offer{newer});
    processEvents();
    UpdateWindow* window = presenter_.window();
    const int fitted = window->height();
    window->resize(window->width(), fitted + 100);
    presenter_.show(Presenter::Offer{newer});
    processEvents();
    EXPECT_EQ(window->height(), fitted + 100);
    presenter_.show(Presenter::Download{0, 1});
    processEvents();
    EXPECT_EQ(window->height(), fitted + 100);
    EXPECT_THAT(layoutFaults(*window), IsEmpty());

    window->resize(window->size().boundedTo(QSize(window->width(), 0)));
    const int lower = window->height();
    EXPECT_LT(lower, fitted);
    presenter_.show(Presenter::Offer{newer});
    processEvents();
    EXPECT_EQ(window->height(), fitted);
    presenter_.show(Presenter::Download{0, 1});
    processEvents();
    EXPECT_EQ(window->height(), lower);

    window->resize(window->width(), fitted);
    window->close();
    presenter_.show(Presenter::Checking());
    processEvents();
    EXPECT_LT(window->height(), fitted);
}

TEST_F(UpdateWindowTest, TabKeyVisitsTheNotesThenTheButtons) {
    presenter_.show(Presenter::Offer{newer});
    processEvents();
    UpdateWindow* window = presenter_.window();
    std::vector<std::string> reached;
    for (int step = 0; step < 4; ++step) {
        QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
        reached.push_back(window->focusWidget()->objectName().toStdString());
    }
    EXPECT_THAT(reached, ElementsAre("notes", "skip", "later", "install"));
    presenter_.show(Presenter::Download{0, 1});
    EXPECT_EQ(window->focusWidget(), button("cancel"));
}

TEST_F(UpdateWindowTest, EveryPartHasAnAccessibleName) {
    presenter_.show(Presenter::Offer{newer});
    const auto nameOf = [this](const char* name) {
        return QAccessible::queryAccessibleInterface(find<QWidget>(name))
            ->text(QAccessible::Name)
            .toStdString();
    };
    EXPECT_EQ(nameOf("notes"), "Release notes");
    EXPECT_EQ(nameOf("install"), "Install");
    EXPECT_EQ(nameOf("skip"), "Skip this version");
    presenter_.show(Presenter::Download{0, 1});
    EXPECT_EQ(nameOf("progress"), "Progress");
}

class UpdateWindowLookTest : public UpdateWindowTest, public testing::WithParamInterface<Look> {
protected:
    void expectNothingCut() {
        processEvents();
        EXPECT_THAT(layoutFaults(*presenter_.window()), IsEmpty()) << text("title");
    }
};

TEST_P(UpdateWindowLookTest, NoTextIsCutInAnyState) {
    const DesktopLook look(GetParam());
    presenter_.show(Presenter::Checking());
    expectNothingCut();
    presenter_.show(Presenter::NoUpdate());
    expectNothingCut();
    presenter_.show(Presenter::Offer{newer});
    expectNothingCut();
    button("install")->click();
    presenter_.show(Presenter::Download{6'150'000, 12'300'000});
    expectNothingCut();
    presenter_.show(Presenter::Verification());
    expectNothingCut();
    presenter_.show(Presenter::ReadyToInstall{newer});
    expectNothingCut();
    presenter_.show(Presenter::Refusal{
        "The update feed could not be loaded: the server answered with status 404."});
    expectNothingCut();
    presenter_.revealPackage("/home/one/Downloads/" + std::string(80, 'x') + ".deb");
    expectNothingCut();
}

INSTANTIATE_TEST_SUITE_P(Looks, UpdateWindowLookTest, testing::ValuesIn(allLooks()), nameOfLook);

/// With the updater service and a fake updater.
class UpdateWindowPresenterServiceTest : public UpdateWindowPresenterTest {
protected:
    UpdateWindowPresenterServiceTest() { bundle_.setInfo("SUPublicEDKey", "key"); }

    [[nodiscard]] const UpdateWindowPresenter& presenter() const override { return presenter_; }

    FakeSoftwareUpdater updater_;
    UpdateWindowPresenter presenter_{updater_, desktop_, bundle_};
};

TEST_F(UpdateWindowPresenterServiceTest, AnUpdateAwaitsAttentionUntilItIsSeen) {
    UpdaterService service(bundle_, updater_, presenter_);
    updater_.setOffer(newer);
    updater_.passADay();
    processEvents();
    EXPECT_TRUE(service.updateAwaitingAttention());
    EXPECT_FALSE(isShown());
    updater_.checkForUpdates();
    processEvents();
    EXPECT_TRUE(isShown());
    EXPECT_FALSE(service.updateAwaitingAttention());
    presenter_.window()->close();
    EXPECT_EQ(updater_.lastChoice(), Choice::Later);
}

/// With the real updater, running from an AppImage of version 1.2.3.
class UpdateWindowPresenterAppcastTest : public UpdateWindowPresenterTest {
protected:
    UpdateWindowPresenterAppcastTest() {
        std::filesystem::create_directories(folder_ / "mounted");
        std::ofstream(appImage_) << "old";
        chmod(appImage_.c_str(), 0755);
        bundle_.setInfo("SUPublicEDKey", signer_.publicKey());
        offer(signer_.signature("new"));
        session_.setHandler([this](const URLRequest& request) -> FakeURLSession::Answer {
            return URLResponse{200, request.url == "https://h/update" ? "new" : feed_};
        });
        const ProgramTraces traces{folder_ / "mounted" / "agent", appImage_, folder_ / "mounted"};
        const AppcastUpdater::Agent agent{
            *UpdateVersion::parse("1.2.3"),
            UpdateInstallation(traces, folder_ / "Downloads"),
            "x86_64",
            *UpdateVersion::parse("2.36")};
        updater_.emplace(session_, clock_, defaults_, logStore_, agent);
        presenter_.emplace(*updater_, desktop_, bundle_);
        service_.emplace(bundle_, *updater_, *presenter_);
    }

    [[nodiscard]] const UpdateWindowPresenter& presenter() const override { return *presenter_; }

    void offer(const std::string& signature) {
        AppcastBuilder feed;
        feed.add(AppcastBuilder::Item("2.0", "https://h/update", "new", signer_)
                     .with("sparkle:edSignature", signature));
        feed_ = feed.text();
    }

    void checkAndInstall() {
        updater_->checkForUpdates();
        ASSERT_TRUE(waitUntil([this] { return text("title") != "Checking for updates…"; }));
        ASSERT_EQ(text("title"), "A new version of Orvel Agent is available.");
        button("install")->click();
    }

    [[nodiscard]] std::string installed() const {
        std::ifstream stream(appImage_);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    TemporaryDirectory folder_;
    std::filesystem::path appImage_ = folder_ / "Agent.AppImage";
    UpdateSigner signer_;
    std::string feed_;
    FakeURLSession session_;
    ManualClock clock_;
    InMemoryUserDefaults defaults_;
    RecordingLogStore logStore_;
    std::optional<AppcastUpdater> updater_;
    std::optional<UpdateWindowPresenter> presenter_;
    std::optional<UpdaterService> service_;
};

TEST_F(UpdateWindowPresenterAppcastTest, OneClickInstallsAndStartsTheNewVersion) {
    checkAndInstall();
    ASSERT_TRUE(waitUntil([this] { return process_.terminations > 0; }));
    EXPECT_EQ(installed(), "new");
    EXPECT_EQ(process_.relaunches, 1);
}

TEST_F(UpdateWindowPresenterAppcastTest, ShowsThatAForgedUpdateIsRefused) {
    offer(UpdateSigner().signature("new"));
    checkAndInstall();
    ASSERT_TRUE(waitUntil([this] { return text("title") == "Orvel Agent could not be updated."; }));
    EXPECT_EQ(text("text"), "The signature of the update is not valid. It was not installed.");
    EXPECT_EQ(installed(), "old");
    EXPECT_EQ(process_.relaunches, 0);
}

} // namespace orvel::test
