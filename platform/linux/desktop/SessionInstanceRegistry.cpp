// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/SessionInstanceRegistry.h"

#include "platform/linux/support/SessionBus.h"

#include <unistd.h>

#include <utility>
#include <variant>

namespace orvel {

std::optional<InstanceRegistry::RunningApplication>
SessionInstanceRegistry::runningCopy(const std::string& identifier) {
    if (!name_) {
        name_ = std::make_unique<InstanceName>(identifier, [this] { activated_.call(); });
    }
    // First: a copy that has the name, if only for a moment, has to be the one copy, since others
    // ask it to come to the front.
    if (const auto folder = InstanceLock::defaultFolder(identifier)) {
        const InstanceLock::Outcome held = lock_.take(*folder, identifier);
        if (const auto* other = std::get_if<InstanceLock::HeldBy>(&held)) {
            return RunningApplication{other->processIdentifier};
        }
    }
    // Also with the lock: a copy may run that has another folder for it, or none.
    const InstanceName::Outcome outcome = name_->take();
    if (const auto* other = std::get_if<InstanceName::OwnedBy>(&outcome)) {
        if (other->processIdentifier != getpid()) {
            return RunningApplication{other->processIdentifier};
        }
    }
    return std::nullopt;
}

void SessionInstanceRegistry::activateCopy(const RunningApplication&) {
    if (name_) {
        name_->activateOwner();
    }
}

std::unique_ptr<Subscription>
SessionInstanceRegistry::onActivation(std::function<void()> activated) {
    return activated_.add(std::move(activated));
}

std::unique_ptr<SessionBus> SessionInstanceRegistry::shareBus() const {
    return name_ ? name_->shareBus() : nullptr;
}

} // namespace orvel
