// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Interface.h"

#include <optional>
#include <string>

namespace orvel {

class UpdateObserver;
class UpdatePresenter;

/// Checks for newer versions of this application, once a day and on request, and installs them when
/// the user agrees. An update that is not signed with the feed's key is never installed.
///
/// Main thread. One update is under way at a time. The observer and the presenter are called on the
/// main thread too, also from within the functions here, and may call these in turn.
class SoftwareUpdater : public tavrin::Interface {
public:
    struct Feed {
        std::string url;
        /// Base64 of an Ed25519 public key.
        std::string publicKey;
    };

    enum class Choice {
        /// Downloads the update that is offered; installs the update that is ready.
        Install,
        /// Drops the update until the next check.
        Later,
        /// Drops the update; no scheduled check offers this version or an older one again.
        Skip,
        /// Ends a running check or download.
        Cancel,
    };

    /// Begins with scheduled checks. Borrows both until `stop`. Only while stopped.
    virtual void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) = 0;
    /// Drops what is under way; observer and presenter are not called any more.
    virtual void stop() = 0;

    /// Checks for the user, who is shown every outcome. While an update is offered or downloaded,
    /// brings that one to the front instead. Only while started.
    virtual void checkForUpdates() = 0;

    /// The user's answer to what the presenter shows. Does nothing when it does not fit the stage.
    virtual void choose(Choice choice) = 0;
    /// The user has seen the update that is shown.
    virtual void noteUserAttention() = 0;

    /// True until it is switched off; kept across launches.
    [[nodiscard]] virtual bool automaticallyChecksForUpdates() const = 0;
    /// Takes effect at once; the observer is told when it has been saved.
    virtual void setAutomaticallyChecksForUpdates(bool isAutomatic) = 0;

    /// When the feed was last read, in this launch or an earlier one.
    [[nodiscard]] virtual std::optional<tavrin::Date> lastUpdateCheckDate() const = 0;
};

} // namespace orvel
