// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Subscription.h"

#include <functional>
#include <memory>

namespace orvel {

/// Whether the user wants nothing on the screen to move or to flash. Main thread.
class MotionPreference : public tavrin::Interface {
public:
    /// False until that is known. The first call of either function starts the search for it.
    [[nodiscard]] virtual bool shouldReduceMotion() = 0;

    /// Calls back whenever that changes.
    [[nodiscard]] virtual std::unique_ptr<Subscription> onChange(std::function<void()> changed) = 0;
};

} // namespace orvel
