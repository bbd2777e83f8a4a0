// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Subscription.h"

#include <functional>
#include <memory>

namespace orvel {

/// Whether the user wants no animations. Main thread.
class MotionPreference : public tavrin::Interface {
public:
    /// False until the setting has been read. The first call of either function starts reading it.
    [[nodiscard]] virtual bool shouldReduceMotion() = 0;

    /// Calls back after every change.
    [[nodiscard]] virtual std::unique_ptr<Subscription> onChange(std::function<void()> changed) = 0;
};

} // namespace orvel
