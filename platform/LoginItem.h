// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <optional>
#include <variant>

namespace orvel {

/// Controls whether the system starts the agent when the user logs in.
///
/// Operations take effect in call order. Main thread; completions run there exactly once, never
/// before the call returns. Destroying the item drops pending completions without calling them;
/// operations that were started still take effect.
class LoginItem : public tavrin::Interface {
public:
    enum class Status {
        NotRegistered,
        Enabled,
        /// Registered, but switched off in the system settings.
        Disabled,
    };

    /// The failure; nothing on success.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;
    using StatusCompletion = std::function<void(std::variant<Status, tavrin::PlatformError>)>;

    /// Also enables an item that is registered already.
    virtual void registerItem(Completion completion) = 0;

    /// Succeeds also when the item was not registered.
    virtual void unregisterItem(Completion completion) = 0;

    /// Makes an enabled item start this program, if the one that it starts is gone, such as the
    /// agent at its earlier place. Changes no item that is not registered or not enabled.
    virtual void repairItem(Completion completion) = 0;

    virtual void status(StatusCompletion completion) = 0;
};

} // namespace orvel
