// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/InstanceRegistry.h"
#include "platform/Subscribers.h"
#include "platform/linux/desktop/InstanceLock.h"
#include "platform/linux/desktop/InstanceName.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

class SessionBus;

/// Detects other copies by a name on the session bus, and by a lock file those on another bus or
/// without one.
class SessionInstanceRegistry final : public InstanceRegistry {
public:
    [[nodiscard]] std::optional<RunningApplication>
    runningCopy(const std::string& identifier) override;
    /// Does nothing for a copy that cannot be reached on the session bus.
    void activateCopy(const RunningApplication& application) override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override;

    /// Shares the name's connection, because another one would slow down start-up. Null before
    /// `runningCopy` or without a bus.
    [[nodiscard]] std::unique_ptr<SessionBus> shareBus() const;

private:
    Subscribers activated_;
    std::unique_ptr<InstanceName> name_;
    InstanceLock lock_;
};

} // namespace orvel
