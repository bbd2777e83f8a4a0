// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"

#include <QCoreApplication>
#include <QString>

#include <memory>

namespace orvel {

class ApplicationFocus;
class Bundle;
class MotionPreference;
class ProcessControl;
class UpdateWindow;
class Workspace;

/// Shows the user what the updater does, in a window of its own, and brings back the answers.
///
/// An update that is found on schedule waits without a window until the user asks for it. Who has
/// once said "Install" is not asked again. Closing the window means later, or cancels what runs.
/// Main thread. Borrows the updater and the desktop.
class UpdateUserDriver final : public SoftwareUpdater::UserDriver {
    Q_DECLARE_TR_FUNCTIONS(orvel::UpdateUserDriver)

public:
    struct Desktop {
        Workspace& workspace;
        MotionPreference& motionPreference;
        ApplicationFocus& applicationFocus;
        ProcessControl& processControl;
    };

    UpdateUserDriver(SoftwareUpdater& updater, const Desktop& desktop, const Bundle& bundle);
    ~UpdateUserDriver() override;

    void showChecking() override;
    void showNoUpdate() override;
    void showUpdate(const SoftwareUpdate& update, SoftwareUpdater::Showing showing) override;
    void showUpdateInFocus() override;
    void showDownload(std::uint64_t received, std::uint64_t expected) override;
    void showVerification() override;
    void showReadyToInstall(const SoftwareUpdate& update) override;
    void showRefusal(const std::string& sentence) override;
    void revealPackage(const std::string& path) override;
    void relaunch() override;

    /// None before there has been something to show.
    [[nodiscard]] UpdateWindow* window() const { return window_.get(); }

private:
    enum class State { Idle, Checking, Asking, Downloading, Verifying, Installing };

    /// Brings the window to the front.
    void present();
    void setPage(
        State state,
        const QString& title,
        const QString& text = {},
        const QString& notes = {},
        int progress = -1);
    void install();
    void skip();
    void dismiss();

    SoftwareUpdater& updater_;
    const Desktop desktop_;
    const QString name_;
    const QString version_;
    std::unique_ptr<UpdateWindow> window_;
    State state_ = State::Idle;
    /// The display version of the update that is under way.
    QString updateVersion_;
    /// The user has closed the window while nothing could be stopped.
    bool isDeclined_ = false;
};

} // namespace orvel
