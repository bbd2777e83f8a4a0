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

/// Owns the services. The views show its state and call its functions.
///
/// Main thread. Borrows the platform and the update presenter. It must not be destroyed from a slot
/// connected to its own signals or its services' signals. The destructor finishes the worker's
/// queued jobs, ends all tasks and removes the copy of the database.
class AppModel final : public QObject {
    Q_OBJECT

public:
    /// The longest time that `stop` takes. Together with the destructor, quitting takes two
    /// seconds.
    static constexpr tavrin::Seconds shutdownTimeout{1.5};

    /// Starts collecting. Without a source path it reads the user's own Messages database.
    AppModel(
        Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options);
    ~AppModel() override;

    /// Starts the collection loop; does nothing while it runs.
    void startCollecting() { loop_.start(); }

    /// Ends the collection loop and the running scan, then waits until the keychain has stored the
    /// session. Takes at most `shutdownTimeout`. The loop cannot be started again. Never throws.
    QCoro::Task<> stop();

    /// Checks the permissions again. Never throws.
    QCoro::Task<> refreshPermissions() { return permissions_.refresh(); }

    /// Asks the user for access to the address book. If access is granted, scans all conversations
    /// again. While the question is open, another call only brings it to the front. Never throws.
    QCoro::Task<> requestContactsAccess();

    /// Deletes the saved progress, so that the next scan reads every message. Never throws.
    QCoro::Task<> rescanFromBeginning();

    /// Starts or stops the attention flash according to the status.
    void syncAttentionFlash();

    /// Quits and starts the program again, because some permissions apply only to a new process.
    void relaunch();

    // The user's choices. Each applies at once and is saved on the worker.
    void setMode(tavrin::CollectionMode mode) { choices_.setMode(mode); }
    void setScope(tavrin::ThreadScope scope) { choices_.setScope(scope); }
    /// Also changes the login item, even when the value is the same as before.
    void setStartAtLogin(bool startsAtLogin) { choices_.setStartAtLogin(startsAtLogin); }

    void activate() { platform_.applicationFocus->activate(); }
    /// Calls `completion` as `Workspace::openSettings` does.
    void openSettings(Workspace::SettingsPane pane, Workspace::Completion completion) {
        platform_.workspace->openSettings(pane, std::move(completion));
    }

    [[nodiscard]] AuthService& auth() { return auth_; }
    [[nodiscard]] UpdaterService& updater() { return updater_; }
    [[nodiscard]] CollectorService& collector() { return collector_; }
    [[nodiscard]] const WatermarkStore& watermarkStore() const { return watermarkStore_; }
    [[nodiscard]] const Configuration& configuration() const { return configuration_; }
    [[nodiscard]] LogReader::Subsystems logSubsystems() const;

    [[nodiscard]] bool hasFullDiskAccess() const { return permissions_.hasFullDiskAccess(); }
    [[nodiscard]] ContactBridge::Availability contactsAvailability() const {
        return permissions_.contactsAvailability();
    }
    [[nodiscard]] tavrin::CollectionMode mode() const { return choices_.collection().mode; }
    [[nodiscard]] tavrin::ThreadScope scope() const { return choices_.collection().scope; }
    [[nodiscard]] bool startAtLogin() const { return choices_.startAtLogin(); }
    [[nodiscard]] bool attentionFlashOn() const { return flash_.isOn(); }
    /// Why the user's last choice could not be saved. Empty if it was saved.
    [[nodiscard]] const std::optional<std::string>& settingsError() const {
        return choices_.error();
    }
    /// Why the last `rescanFromBeginning` could not delete the saved progress. Empty if it could.
    [[nodiscard]] const std::optional<std::string>& rescanError() const { return rescanError_; }

    /// Whether collection is blocked because the user is not signed in or Full Disk Access is
    /// missing.
    [[nodiscard]] bool needsAttention() const { return status_.needsAttention(); }
    /// A sentence for the user. Empty while collection is not blocked.
    [[nodiscard]] std::optional<std::string> blockedReason() const {
        return status_.blockedReason();
    }
    [[nodiscard]] StatusIcon statusIcon() const { return status_.statusIcon(); }
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
    /// A query above, other than `attentionFlashOn`, may return a new value.
    void changed();
    void attentionFlashChanged();

private:
    void statusChanged();
    /// The copy of a killed process would otherwise stay until the next scan.
    QCoro::Task<> removeAbandonedCopies();

    Platform& platform_;
    const Configuration configuration_;
    const Logger log_;
    /// Cancelled by the destructor.
    tavrin::CancellationSource lifetime_;
    Worker worker_;
    /// Reads the Messages database. Not `worker_`: if the database's disk does not answer, only the
    /// scan must wait for it.
    Worker scanWorker_;
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
    /// Ends when the destructor stops the worker, at the latest.
    QCoro::Task<> abandonedCopies_;
};

} // namespace orvel
