// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Subscription.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// The running copies of the application in the user's session. Main thread.
class InstanceRegistry : public tavrin::Interface {
public:
    /// Another running copy in the same session.
    struct RunningApplication {
        std::int64_t processIdentifier = 0;
    };

    /// Registers this process as the session's only copy with that identifier, until the registry
    /// is destroyed. Returns the other process if one is already registered. Blocks, so call it
    /// only at start-up.
    [[nodiscard]] virtual std::optional<RunningApplication>
    runningCopy(const std::string& identifier) = 0;

    /// Brings the other copy to the front. Blocks.
    virtual void activateCopy(const RunningApplication& application) = 0;

    /// Calls back whenever another copy has brought this one to the front.
    [[nodiscard]] virtual std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) = 0;
};

} // namespace orvel
