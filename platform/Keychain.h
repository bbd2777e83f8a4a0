// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"
#include "core/Secret.h"

#include <functional>
#include <optional>
#include <string>

namespace orvel {

/// Generic-password items in the user's keychain, each named by a service and an account.
///
/// Operations take effect in the order in which they were started: a read sees what was written
/// or removed before it, even while that is still on its way. Main thread; completions run there
/// exactly once, never before the call returns, but maybe much later: the system may first ask the
/// user to unlock the keychain. Nothing here blocks meanwhile. Destroying the keychain drops the
/// completions that are left without calling back.
class Keychain : public tavrin::Interface {
public:
    /// The item's value; nothing when there is no such item, or it cannot be read.
    using ReadCompletion = std::function<void(std::optional<tavrin::Secret>)>;
    /// Why the change will not outlive this process, in which it nevertheless holds; nothing when
    /// the keychain has it.
    using ChangeCompletion = std::function<void(std::optional<tavrin::PlatformError>)>;

    virtual void read(std::string service, std::string account, ReadCompletion completion) = 0;

    /// Replaces what was there. The value is UTF-8.
    virtual void write(
        std::string service,
        std::string account,
        tavrin::Secret value,
        ChangeCompletion completion) = 0;

    /// Also a success when there was no such item.
    virtual void remove(std::string service, std::string account, ChangeCompletion completion) = 0;
};

} // namespace orvel
