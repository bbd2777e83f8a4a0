// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/SoftwareUpdate.h"

#include <optional>
#include <string>

namespace orvel {

/// Receives a `SoftwareUpdater`'s events for the rest of the agent.
class UpdateObserver : public tavrin::Interface {
public:
    /// Whether updates found by scheduled checks are offered without taking the focus.
    [[nodiscard]] virtual bool wantsGentleOffers() const = 0;
    /// Called just before the user is offered the update.
    virtual void updateWillBeOffered(const SoftwareUpdate& update, bool isUserInitiated) = 0;
    /// The user has seen the update, or decided about it.
    virtual void updateWasSeen(const SoftwareUpdate& update) = 0;
    /// `SoftwareUpdater::lastUpdateCheckDate` has changed.
    virtual void checkFinished() = 0;
    /// The automatic-check setting or the skipped version was saved. On failure, a sentence for the
    /// user, the choice applies to this launch only.
    virtual void choiceSaved(const std::optional<std::string>& failure) = 0;
};

} // namespace orvel
