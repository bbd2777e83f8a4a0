// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <optional>
#include <variant>

namespace orvel {

/// Whether the system starts the agent when its user logs in.
///
/// Operations take effect in the order in which they were started. Main thread; completions run
/// there exactly once, never before the call returns. Destroying the item drops them without
/// calling back; what was started still takes effect.
class LoginItem : public tavrin::Interface {
public:
    enum class Status {
        NotRegistered,
        Enabled,
        /// Registered, but switched off in the system's own settings.
        Disabled,
    };

    /// Why nothing changed; nothing on success.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;
    using StatusCompletion = std::function<void(std::variant<Status, tavrin::PlatformError>)>;

    /// Also enables an item that was there already.
    virtual void registerItem(Completion completion) = 0;

    /// Also a success when there was none.
    virtual void unregisterItem(Completion completion) = 0;

    virtual void status(StatusCompletion completion) = 0;
};

} // namespace orvel
