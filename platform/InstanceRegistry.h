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

/// The copies of the application that run in the user's session. Main thread.
class InstanceRegistry : public tavrin::Interface {
public:
    /// Another copy of the application that runs in the same session.
    struct RunningApplication {
        std::int64_t processIdentifier = 0;
    };

    /// Makes this process the one copy of that identifier in this session, for as long as the
    /// registry lives, unless another process is it already: then that one. Waits for the system,
    /// so for the start of the program only.
    [[nodiscard]] virtual std::optional<RunningApplication>
    runningCopy(const std::string& identifier) = 0;

    /// Brings the other copy to the front. Waits for the system as well.
    virtual void activateCopy(const RunningApplication& application) = 0;

    /// Calls back whenever another copy has brought this one to the front.
    [[nodiscard]] virtual std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) = 0;
};

} // namespace orvel
