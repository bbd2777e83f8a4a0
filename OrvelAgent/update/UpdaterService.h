// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "platform/SoftwareUpdater.h"

#include <QObject>

#include <optional>
#include <string>

namespace orvel {

class Bundle;

/// What the agent knows of its own updates: whether this build can update itself, when it last
/// looked, and whether an update waits for the user.
///
/// Without a signing key or without an HTTPS feed the updater is never started, so that no update
/// is installed unverified. Main thread. Borrows the updater and the user driver, and stops the
/// updater when destroyed.
class UpdaterService final : public QObject, private SoftwareUpdater::Delegate {
    Q_OBJECT

public:
    UpdaterService(
        const Bundle& bundle, SoftwareUpdater& updater, SoftwareUpdater::UserDriver& userDriver);
    ~UpdaterService() override;

    /// The running updater; none when this build has a configuration error.
    [[nodiscard]] SoftwareUpdater* controller() const { return controller_; }
    /// Why this build will not update itself; fixed for the life of the process.
    [[nodiscard]] const std::optional<std::string>& configurationError() const {
        return configurationError_;
    }
    /// Empty until this process has checked.
    [[nodiscard]] std::optional<tavrin::Date> lastCheck() const { return lastCheck_; }
    /// A scheduled check found an update that the user has not looked at yet.
    [[nodiscard]] bool updateAwaitingAttention() const { return updateAwaitingAttention_; }
    /// Why the user's last choice about updates holds for this launch only; a sentence for the
    /// user.
    [[nodiscard]] const std::optional<std::string>& settingsError() const { return settingsError_; }

Q_SIGNALS:
    /// One of the above has.
    void changed();

private:
    [[nodiscard]] bool supportsGentleScheduledUpdateReminders() const override { return true; }
    void standardUserDriverWillHandleShowingUpdate(
        const SoftwareUpdate& update, bool isUserInitiated) override;
    void standardUserDriverDidReceiveUserAttention(const SoftwareUpdate& update) override;
    void updaterDidFinishUpdateCheck() override;
    void updaterDidSaveChoice(const std::optional<std::string>& failure) override;

    void setUpdateAwaitingAttention(bool isAwaiting);

    SoftwareUpdater* controller_ = nullptr;
    std::optional<std::string> configurationError_;
    std::optional<tavrin::Date> lastCheck_;
    bool updateAwaitingAttention_ = false;
    std::optional<std::string> settingsError_;
};

} // namespace orvel
