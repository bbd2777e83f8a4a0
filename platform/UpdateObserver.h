// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/SoftwareUpdate.h"

#include <optional>
#include <string>

namespace orvel {

/// Told by a `SoftwareUpdater` of what concerns the rest of the agent.
class UpdateObserver : public tavrin::Interface {
public:
    /// Whether an update that a scheduled check finds is offered gently, without taking the focus.
    [[nodiscard]] virtual bool wantsGentleOffers() const = 0;
    /// Called just before the user is offered the update.
    virtual void updateWillBeOffered(const SoftwareUpdate& update, bool isUserInitiated) = 0;
    /// The user has seen the update, or decided about it.
    virtual void updateWasSeen(const SoftwareUpdate& update) = 0;
    /// `SoftwareUpdater::lastUpdateCheckDate` has changed.
    virtual void checkFinished() = 0;
    /// Whether checks are automatic, or which version is skipped, has been saved. With a failure, a
    /// sentence for the user, the choice holds for this launch only.
    virtual void choiceSaved(const std::optional<std::string>& failure) = 0;
};

} // namespace orvel
