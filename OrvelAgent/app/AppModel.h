// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/app/StatusIcon.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/log/LogReader.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/ContactBridge.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/WatermarkStore.h"
#include "OrvelAgent/update/UpdaterService.h"
#include "core/CancellationToken.h"
#include "core/CollectionPreferences.h"
#include "platform/Platform.h"
#include "platform/Subscription.h"

#include <QCoroTask>
#include <QObject>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

class UpdatePresenter;

/// The one object behind every window: owns the services, derives the status that the user sees
/// from theirs, and runs the collection loop.
///
/// Main thread. The platform and the presenter are borrowed. It may be destroyed in whatever
/// state, only not by those whom its signal, or a service's, calls: what runs then has ended, and
/// its snapshot is gone, when the destructor returns. Until then that waits for the piece of work
/// on the disk that is under way, and carries out what is still to be saved.
class AppModel final : public QObject {
    Q_OBJECT

public:
    /// After a clean scan.
    static constexpr tavrin::Seconds scanInterval{900};
    /// After one failed scan; each further one doubles it, up to the cap.
    static constexpr tavrin::Seconds backoffUnit{60};
    static constexpr tavrin::Seconds backoffCap{300};
    /// While something blocks collection.
    static constexpr tavrin::Seconds blockedRecheck{30};
    /// The two phases of the attention flash: the brand image, and the attention symbol.
    static constexpr tavrin::Seconds brandBeat{2.4};
    static constexpr tavrin::Seconds alertBeat{0.8};
    /// How much of the log is sent after each scan.
    static constexpr std::chrono::minutes diagnosticsWindow{20};
    /// For what is left to do when the user wants to leave.
    static constexpr tavrin::Seconds lastChance{2};

    /// Begins to collect. Without a source path, from the user's own Messages database.
    AppModel(
        Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options);
    ~AppModel() override;

    /// Starts the collection loop; does nothing while it runs.
    void startCollecting();

    /// Ends the collection loop and the scan that runs for good, and waits until the keychain has
    /// the session, but not for longer than two seconds: its user wants to leave. Never throws.
    QCoro::Task<> stop();

    /// Looks again whether the Messages database can be read. Never throws.
    QCoro::Task<> refreshPermissions();

    /// Asks the user for the address book, and scans all conversations anew when it is granted.
    /// While the question is open, another call only brings it to the front. Never throws.
    QCoro::Task<> requestContactsAccess();

    /// Lets the next scan begin with the newest message again. Never throws.
    QCoro::Task<> rescanFromBeginning();

    /// Starts or ends the attention flash, whichever the status and the user's wish for reduced
    /// motion ask for.
    void syncAttentionFlash();

    /// Quits, and starts this program anew: some permissions are seen only then.
    void relaunch();

    // The user's choices. Each is in force at once, and saved on the worker.
    void setMode(tavrin::CollectionMode mode);
    void setScope(tavrin::ThreadScope scope);
    /// Also tells the system, whether the value is new or not.
    void setStartAtLogin(bool startsAtLogin);

    [[nodiscard]] AuthService& auth() { return *auth_; }
    [[nodiscard]] UpdaterService& updater() { return *updater_; }
    [[nodiscard]] CollectorService& collector() { return *collector_; }
    [[nodiscard]] const WatermarkStore& watermarkStore() const { return *watermarkStore_; }
    [[nodiscard]] Platform& platform() { return platform_; }
    [[nodiscard]] const Configuration& configuration() const { return configuration_; }
    /// Whose lines the application's log is made of.
    [[nodiscard]] LogReader::Subsystems logSubsystems() const;

    [[nodiscard]] bool hasFullDiskAccess() const { return hasFullDiskAccess_; }
    [[nodiscard]] ContactBridge::Availability contactsAvailability() const {
        return contactsAvailability_;
    }
    [[nodiscard]] tavrin::CollectionMode mode() const { return mode_; }
    [[nodiscard]] tavrin::ThreadScope scope() const { return scope_; }
    [[nodiscard]] bool startAtLogin() const { return startAtLogin_; }
    [[nodiscard]] bool attentionFlashOn() const { return attentionFlashOn_; }
    /// Why the user's last choice could not be saved; gone with the next one that is.
    [[nodiscard]] const std::optional<std::string>& settingsError() const { return settingsError_; }
    /// Why the last re-scan that was asked for will not begin with the newest message.
    [[nodiscard]] const std::optional<std::string>& rescanError() const { return rescanError_; }

    /// Something that only the user can mend keeps the agent from its work.
    [[nodiscard]] bool needsAttention() const;
    /// Why nothing is collected.
    [[nodiscard]] std::optional<std::string> blockedReason() const;
    [[nodiscard]] StatusIcon statusIcon() const;
    /// The status icon in words.
    [[nodiscard]] std::string statusAccessibilityLabel() const;

Q_SIGNALS:
    /// One or more of the above have changed, here or in a service.
    void changed();

private:
    using Write = std::function<void(tavrin::UserDefaults&)>;

    /// The collection loop.
    QCoro::Task<> collect(tavrin::CancellationToken cancellation);
    /// One scan, after the one that runs, and what it means for the next wait.
    QCoro::Task<> performScan(tavrin::CancellationToken cancellation);
    QCoro::Task<> scanOnce(tavrin::CancellationToken cancellation);
    QCoro::Task<> flash(tavrin::CancellationToken cancellation);
    QCoro::Task<> rescanWithContacts(tavrin::CancellationToken cancellation);
    QCoro::Task<> save(Write write);

    [[nodiscard]] tavrin::Seconds waitAfterScan() const;
    [[nodiscard]] std::optional<QUuid> newestScan() const;
    void setAttentionFlashOn(bool isOn);
    /// Tells of what becomes of an error, of one of the two below.
    void setError(std::optional<std::string> AppModel::*which, std::optional<std::string> error);
    /// Whether it was another before.
    bool readContactsAvailability();
    void serviceChanged();

    Platform& platform_;
    const Configuration configuration_;
    const std::string sourcePath_;
    const Logger log_;
    std::unique_ptr<Worker> worker_;
    std::unique_ptr<AuthService> auth_;
    std::unique_ptr<UpdaterService> updater_;
    std::unique_ptr<ContactBridge> contacts_;
    std::unique_ptr<WatermarkStore> watermarkStore_;
    std::optional<IngestClient> ingest_;
    std::unique_ptr<CollectorService> collector_;

    bool hasFullDiskAccess_ = false;
    ContactBridge::Availability contactsAvailability_ = ContactBridge::Availability::NotDetermined;
    tavrin::CollectionMode mode_ = tavrin::CollectionPreferences::defaultMode;
    tavrin::ThreadScope scope_ = tavrin::CollectionPreferences::defaultScope;
    bool startAtLogin_ = false;
    bool attentionFlashOn_ = false;
    std::optional<std::string> settingsError_;
    std::optional<std::string> rescanError_;

    /// How many scans in a row ended with an error.
    std::int64_t consecutiveFailures_ = 0;
    bool isRequestingContacts_ = false;
    /// Settled when the scan that runs is over.
    std::optional<Deferred<void>> scanEnd_;
    Deferred<void> loopEnd_;
    /// Ends the flash that runs.
    std::optional<tavrin::CancellationSource> flashing_;
    /// Ends loop and scans.
    tavrin::CancellationSource collection_;
    /// Cancelled by the destructor.
    tavrin::CancellationSource lifetime_;
    std::unique_ptr<Subscription> reduceMotionChanges_;
    std::optional<QCoro::Task<>> loop_;
    QCoro::Task<> flash_;
};

} // namespace orvel
