// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "platform/UpdateObserver.h"

#include <QObject>

#include <optional>
#include <string>

namespace orvel {

class Bundle;
class SoftwareUpdater;
class UpdatePresenter;

/// Publishes whether this build can update itself, when it last checked, and whether an update
/// awaits the user.
///
/// Without a signing key or an HTTPS feed the updater is never started, so that no update is
/// installed unverified. Main thread. Borrows the updater and the presenter, and stops the updater
/// when destroyed.
class UpdaterService final : public QObject, private UpdateObserver {
    Q_OBJECT

public:
    UpdaterService(const Bundle& bundle, SoftwareUpdater& updater, UpdatePresenter& presenter);
    ~UpdaterService() override;

    /// The running updater; null when this build has a configuration error.
    [[nodiscard]] SoftwareUpdater* controller() const { return controller_; }
    /// Why this build will not update itself; fixed for the life of the process.
    [[nodiscard]] const std::optional<std::string>& configurationError() const {
        return configurationError_;
    }
    /// Empty until the first check of this process has finished.
    [[nodiscard]] std::optional<tavrin::Date> lastCheck() const { return lastCheck_; }
    /// A scheduled check has found an update that the user has not seen.
    [[nodiscard]] bool updateAwaitingAttention() const { return updateAwaitingAttention_; }
    /// Why the user's last choice about updates was not saved. A sentence for the user.
    [[nodiscard]] const std::optional<std::string>& settingsError() const { return settingsError_; }

Q_SIGNALS:
    void changed();

private:
    /// An update found by a scheduled check is shown on the status icon, not in a window.
    [[nodiscard]] bool wantsGentleOffers() const override { return true; }
    void updateWillBeOffered(const SoftwareUpdate&, bool isUserInitiated) override;
    void updateWasSeen(const SoftwareUpdate&) override { setUpdateAwaitingAttention(false); }
    void checkFinished() override;
    void choiceSaved(const std::optional<std::string>& failure) override;

    void setUpdateAwaitingAttention(bool isAwaiting);

    SoftwareUpdater* controller_ = nullptr;
    std::optional<std::string> configurationError_;
    std::optional<tavrin::Date> lastCheck_;
    bool updateAwaitingAttention_ = false;
    std::optional<std::string> settingsError_;
};

} // namespace orvel
