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
    // Take the lock before the name: other copies activate the name's owner, so it must be the copy
    // that keeps running.
    if (const auto folder = InstanceLock::defaultFolder(identifier)) {
        const InstanceLock::Outcome held = lock_.take(*folder, identifier);
        if (const auto* other = std::get_if<InstanceLock::HeldBy>(&held)) {
            return RunningApplication{other->processIdentifier};
        }
    }
    // Check the name even with the lock: another copy may use another lock folder, or none.
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
