// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Interface.h"

#include <optional>
#include <string>

namespace orvel {

class UpdateObserver;
class UpdatePresenter;

/// Checks for newer versions once a day and on request, and installs them when the user agrees.
/// Never installs an update that is not signed with the feed's key.
///
/// Main thread. Handles one update at a time. Calls the observer and the presenter on the main
/// thread, possibly from within these functions; they may call these functions in turn.
class SoftwareUpdater : public tavrin::Interface {
public:
    struct Feed {
        std::string url;
        /// Base64 of an Ed25519 public key.
        std::string publicKey;
    };

    enum class Choice {
        /// Downloads the offered update, or installs the downloaded one.
        Install,
        /// Drops the update until the next check.
        Later,
        /// Drops the update; no scheduled check offers this version or an older one again.
        Skip,
        /// Ends a running check or download.
        Cancel,
    };

    /// Starts scheduled checks. Borrows observer and presenter until `stop`. Call only while
    /// stopped.
    virtual void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) = 0;
    /// Cancels any check or download. The observer and the presenter are no longer called.
    virtual void stop() = 0;

    /// Checks at the user's request and shows every outcome. If an update is already offered or
    /// being downloaded, brings it to the front instead. Call only while started.
    virtual void checkForUpdates() = 0;

    /// The user's answer to the presenter's stage. Ignored when the stage does not expect it.
    virtual void choose(Choice choice) = 0;
    /// The user has seen the displayed update.
    virtual void noteUserAttention() = 0;

    /// True until switched off; persists across launches.
    [[nodiscard]] virtual bool automaticallyChecksForUpdates() const = 0;
    /// Takes effect at once; `UpdateObserver::choiceSaved` follows.
    virtual void setAutomaticallyChecksForUpdates(bool isAutomatic) = 0;

    /// When the feed was last read, in this launch or an earlier one.
    [[nodiscard]] virtual std::optional<tavrin::Date> lastUpdateCheckDate() const = 0;
};

} // namespace orvel
