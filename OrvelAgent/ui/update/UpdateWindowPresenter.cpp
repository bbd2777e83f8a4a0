// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/UpdateWindowPresenter.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/ui/update/UpdateWindow.h"
#include "platform/ApplicationFocus.h"
#include "platform/MotionPreference.h"
#include "platform/ProcessControl.h"
#include "platform/SoftwareUpdater.h"
#include "platform/Workspace.h"

#include <QLocale>
#include <QObject>
#include <QPointer>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <variant>

namespace orvel {

namespace {

using Button = UpdateWindow::Button;

QString sizeText(std::uint64_t bytes) {
    return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

} // namespace

UpdateWindowPresenter::UpdateWindowPresenter(
    SoftwareUpdater& updater, const Desktop& desktop, const Bundle& bundle)
    : updater_(updater),
      desktop_(desktop),
      name_(QString::fromStdString(Configuration(bundle).displayName())),
      version_(QString::fromStdString(Configuration(bundle).shortVersion())) {}

UpdateWindowPresenter::~UpdateWindowPresenter() = default;

void UpdateWindowPresenter::show(const Stage& stage) {
    std::visit([this](const auto& each) { showStage(each); }, stage);
}

void UpdateWindowPresenter::showStage(const Checking&) {
    isDeclined_ = false;
    setPage(State::Checking, tr("Checking for updates…"));
    present();
}

void UpdateWindowPresenter::showStage(const NoUpdate&) {
    setPage(
        State::Idle,
        tr("You are up to date."),
        tr("%1 %2 is the newest version.").arg(name_, version_));
    present();
}

void UpdateWindowPresenter::showStage(const Offer& offer) {
    const SoftwareUpdate& update = offer.update;
    updateVersion_ = QString::fromStdString(update.displayVersion);
    isDeclined_ = false;
    setPage(
        State::Asking,
        tr("A new version of %1 is available.").arg(name_),
        tr("Version %1 can be installed now; you have version %2. The download is %3.")
            .arg(updateVersion_, version_, sizeText(update.length)),
        QString::fromStdString(update.releaseNotes));
    if (!offer.isGentle) {
        present();
    }
}

void UpdateWindowPresenter::showInFocus() {
    // A new request overrides an earlier closing of the window.
    isDeclined_ = false;
    present();
    window_->focusUsualAnswer();
}

void UpdateWindowPresenter::showStage(const Download& download) {
    const auto [received, expected] = download;
    const double fraction =
        expected == 0 ? 0 : static_cast<double>(received) / static_cast<double>(expected);
    setPage(
        State::Downloading,
        tr("Downloading version %1…").arg(updateVersion_),
        tr("%1 of %2").arg(sizeText(received), sizeText(expected)),
        {},
        static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100));
}

void UpdateWindowPresenter::showStage(const Verification&) {
    setPage(State::Verifying, tr("Verifying version %1…").arg(updateVersion_));
}

void UpdateWindowPresenter::showStage(const ReadyToInstall&) {
    if (isDeclined_) {
        state_ = State::Idle;
        window_->hide();
        updater_.choose(SoftwareUpdater::Choice::Later);
    } else {
        setPage(State::Installing, tr("Installing version %1…").arg(updateVersion_));
        updater_.choose(SoftwareUpdater::Choice::Install);
    }
}

void UpdateWindowPresenter::showStage(const Refusal& refusal) {
    if (isDeclined_) {
        // The updater logs the reason.
        state_ = State::Idle;
        return;
    }
    setPage(
        State::Idle,
        tr("%1 could not be updated.").arg(name_),
        QString::fromStdString(refusal.sentence));
    present();
}

void UpdateWindowPresenter::revealPackage(const std::string& path) {
    const QString packagePath = QString::fromStdString(path);
    setPage(
        State::Idle,
        tr("Version %1 is ready to be installed.").arg(updateVersion_),
        tr("The package has been verified and is shown in the file manager. Open it to install "
           "it, then start %1 again.\n%2")
            .arg(name_, packagePath));
    present();
    desktop_.workspace.revealFile(
        path,
        [this, packagePath, window = QPointer<UpdateWindow>(window_.get())](
            const std::optional<tavrin::PlatformError>& error) {
            // If the window is gone, so is `this`, which owns it.
            if (error && window && state_ == State::Idle) {
                setPage(
                    State::Idle,
                    tr("Version %1 is ready to be installed.").arg(updateVersion_),
                    tr("The package has been verified, but could not be shown in the file "
                       "manager. Open it to install it, then start %1 again.\n%2")
                        .arg(name_, packagePath));
            }
        });
}

void UpdateWindowPresenter::relaunch() {
    desktop_.processControl.scheduleRelaunch();
    desktop_.processControl.terminate();
}

void UpdateWindowPresenter::present() {
    desktop_.applicationFocus.activate();
    window_->present();
}

void UpdateWindowPresenter::setPage(
    State state, const QString& title, const QString& text, const QString& notes, int progress) {
    if (!window_) {
        window_ = std::make_unique<UpdateWindow>();
        UpdateWindow* window = window_.get();
        QObject::connect(window, &UpdateWindow::installRequested, window, [this] {
            updater_.choose(SoftwareUpdater::Choice::Install);
        });
        QObject::connect(window, &UpdateWindow::skipRequested, window, [this] { skip(); });
        QObject::connect(window, &UpdateWindow::dismissed, window, [this] { dismiss(); });
        QObject::connect(
            window, &UpdateWindow::seen, window, [this] { updater_.noteUserAttention(); });
    }
    state_ = state;
    UpdateWindow::Page page{title, text, notes, progress, {}};
    switch (state) {
    case State::Idle:
        page.progress.reset();
        page.buttons = {Button::OK};
        break;
    case State::Asking:
        page.progress.reset();
        page.buttons = {Button::Install, Button::Later, Button::Skip};
        break;
    case State::Checking:
    case State::Downloading:
        page.buttons = {Button::Cancel};
        break;
    case State::Verifying:
    case State::Installing:
        break;
    }
    window_->setPage(page, desktop_.motionPreference.shouldReduceMotion());
}

void UpdateWindowPresenter::skip() {
    state_ = State::Idle;
    window_->hide();
    updater_.choose(SoftwareUpdater::Choice::Skip);
}

void UpdateWindowPresenter::dismiss() {
    switch (state_) {
    case State::Checking:
    case State::Downloading:
        state_ = State::Idle;
        updater_.choose(SoftwareUpdater::Choice::Cancel);
        break;
    case State::Asking:
        state_ = State::Idle;
        updater_.choose(SoftwareUpdater::Choice::Later);
        break;
    case State::Verifying:
    case State::Installing:
        isDeclined_ = true;
        break;
    case State::Idle:
        break;
    }
}

} // namespace orvel
