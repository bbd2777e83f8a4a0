// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/app/AttentionFlash.h"
#include "OrvelAgent/app/CollectionLoop.h"
#include "OrvelAgent/app/CollectionStatus.h"
#include "OrvelAgent/app/Permissions.h"
#include "OrvelAgent/app/SavedChoices.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/log/LogReader.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanRun.h"
#include "OrvelAgent/scan/WatermarkStore.h"
#include "OrvelAgent/update/UpdaterService.h"
#include "core/CancellationToken.h"
#include "platform/Platform.h"

#include <QCoroTask>
#include <QObject>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace orvel {

/// The one object behind every window: owns the services and the parts of the model, and is what
/// the views read and call.
///
/// Main thread. Borrows the platform and the presenter of updates. It may be destroyed at any time,
/// except from a slot of its own signals or of its services'. The destructor waits for the running
/// job of the worker, carries out the remaining ones, and leaves no task and no copy of the
/// database.
class AppModel final : public QObject {
    Q_OBJECT

public:
    /// How long `stop` may take.
    static constexpr tavrin::Seconds shutdownTimeout{2};

    /// Begins to collect. Without a source path, from the user's own Messages database.
    AppModel(
        Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options);
    ~AppModel() override;

    /// Starts the collection loop; does nothing while it runs.
    void startCollecting() { loop_.start(); }

    /// Ends the collection loop and the running scan for good, and waits until the keychain has the
    /// session, at most for `shutdownTimeout`. Never throws.
    QCoro::Task<> stop();

    /// Looks again whether the Messages database can be read. Never throws.
    QCoro::Task<> refreshPermissions() { return permissions_.refresh(); }

    /// Asks the user for the address book, and scans all conversations again when it is granted.
    /// While the question is open, another call only brings it to the front. Never throws.
    QCoro::Task<> requestContactsAccess();

    /// Lets the next scan begin with the newest message again. Never throws.
    QCoro::Task<> rescanFromBeginning();

    /// Starts or ends the attention flash, as the status demands.
    void syncAttentionFlash();

    /// Quits and starts this program again: some permissions apply only to a new process.
    void relaunch();

    // The user's choices. Each applies at once and is saved on the worker.
    void setMode(tavrin::CollectionMode mode) { choices_.setMode(mode); }
    void setScope(tavrin::ThreadScope scope) { choices_.setScope(scope); }
    /// Also changes the login item, even when the value is the same as before.
    void setStartAtLogin(bool startsAtLogin) { choices_.setStartAtLogin(startsAtLogin); }

    /// Lets the application's windows come to the front.
    void activate() { platform_.applicationFocus->activate(); }
    /// Calls back as `Workspace::openSettings` does.
    void openSettings(Workspace::SettingsPane pane, Workspace::Completion completion) {
        platform_.workspace->openSettings(pane, std::move(completion));
    }

    [[nodiscard]] AuthService& auth() { return auth_; }
    [[nodiscard]] UpdaterService& updater() { return updater_; }
    [[nodiscard]] CollectorService& collector() { return collector_; }
    [[nodiscard]] const WatermarkStore& watermarkStore() const { return watermarkStore_; }
    [[nodiscard]] const Configuration& configuration() const { return configuration_; }
    /// The subsystems whose lines belong to the application's log.
    [[nodiscard]] LogReader::Subsystems logSubsystems() const;

    [[nodiscard]] bool hasFullDiskAccess() const { return permissions_.hasFullDiskAccess(); }
    [[nodiscard]] ContactBridge::Availability contactsAvailability() const {
        return permissions_.contactsAvailability();
    }
    [[nodiscard]] tavrin::CollectionMode mode() const { return choices_.collection().mode; }
    [[nodiscard]] tavrin::ThreadScope scope() const { return choices_.collection().scope; }
    [[nodiscard]] bool startAtLogin() const { return choices_.startAtLogin(); }
    [[nodiscard]] bool attentionFlashOn() const { return flash_.isOn(); }
    /// Why the user's last choice could not be saved; absent again after one that was.
    [[nodiscard]] const std::optional<std::string>& settingsError() const {
        return choices_.error();
    }
    /// Why the last requested re-scan will not begin with the newest message.
    [[nodiscard]] const std::optional<std::string>& rescanError() const { return rescanError_; }

    /// Only the user can remove what prevents collection.
    [[nodiscard]] bool needsAttention() const { return status_.needsAttention(); }
    /// Why nothing is collected.
    [[nodiscard]] std::optional<std::string> blockedReason() const {
        return status_.blockedReason();
    }
    [[nodiscard]] StatusIcon statusIcon() const { return status_.statusIcon(); }
    /// The status icon in words.
    [[nodiscard]] std::string statusAccessibilityLabel() const {
        return status_.statusAccessibilityLabel();
    }
    [[nodiscard]] bool shouldReduceMotion() const {
        return platform_.motionPreference->shouldReduceMotion();
    }
    [[nodiscard]] bool isDebuggerAttached() const {
        return platform_.processControl->isDebuggerAttached();
    }

Q_SIGNALS:
    /// One or more of the above have changed, here or in a service, except for the flash.
    void changed();
    /// Only the status icon and its label follow the flash.
    void attentionFlashChanged();

private:
    void statusChanged();

    Platform& platform_;
    const Configuration configuration_;
    const Logger log_;
    /// Cancelled by the destructor.
    tavrin::CancellationSource lifetime_;
    Worker worker_;
    AuthService auth_;
    UpdaterService updater_;
    ContactBridge contacts_;
    WatermarkStore watermarkStore_;
    const IngestClient ingest_;
    CollectorService collector_;
    Permissions permissions_;
    SavedChoices choices_;
    AttentionFlash flash_;
    const CollectionStatus status_;
    ScanRun scanRun_;
    CollectionLoop loop_;
    std::optional<std::string> rescanError_;
    std::unique_ptr<Subscription> reduceMotionChanges_;
};

} // namespace orvel
