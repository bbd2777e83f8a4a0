// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/UpdatePresenter.h"

#include <QCoreApplication>
#include <QString>

#include <memory>

namespace orvel {

class ApplicationFocus;
class Bundle;
class MotionPreference;
class ProcessControl;
class SoftwareUpdater;
class UpdateWindow;
class Workspace;

/// Shows the stages of an update in a window and passes the user's answers to the updater.
///
/// A gentle offer opens no window until the user asks for updates. After "Install", the verified
/// update is installed without a second question. Closing the window means `Later`, or `Cancel`
/// while a check or a download runs. Main thread. Borrows the updater and the ports.
class UpdateWindowPresenter final : public UpdatePresenter {
    Q_DECLARE_TR_FUNCTIONS(orvel::UpdateWindowPresenter)

public:
    struct Desktop {
        Workspace& workspace;
        MotionPreference& motionPreference;
        ApplicationFocus& applicationFocus;
        ProcessControl& processControl;
    };

    UpdateWindowPresenter(SoftwareUpdater& updater, const Desktop& desktop, const Bundle& bundle);
    ~UpdateWindowPresenter() override;

    void show(const Stage& stage) override;
    void showInFocus() override;
    void revealPackage(const std::string& path) override;
    void relaunch() override;

    /// Null until the first stage has been shown.
    [[nodiscard]] UpdateWindow* window() const { return window_.get(); }

private:
    enum class State { Idle, Checking, Asking, Downloading, Verifying, Installing };

    void showStage(const Checking&);
    void showStage(const NoUpdate&);
    void showStage(const Offer& offer);
    void showStage(const Download& download);
    void showStage(const Verification&);
    void showStage(const ReadyToInstall&);
    void showStage(const Refusal& refusal);
    void present();
    void setPage(
        State state,
        const QString& title,
        const QString& text = {},
        const QString& notes = {},
        int progress = -1);
    void skip();
    void dismiss();

    SoftwareUpdater& updater_;
    const Desktop desktop_;
    const QString name_;
    const QString version_;
    std::unique_ptr<UpdateWindow> window_;
    State state_ = State::Idle;
    /// The display version of the offered update.
    QString updateVersion_;
    /// The user closed the window while the update could not be cancelled.
    bool isDeclined_ = false;
};

} // namespace orvel
