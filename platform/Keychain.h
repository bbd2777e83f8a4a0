// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"
#include "core/Secret.h"

#include <functional>
#include <optional>
#include <string>

namespace orvel {

/// Generic-password items in the user's keychain, identified by service and account.
///
/// Operations take effect in call order: a read sees earlier writes and removals, even pending
/// ones. Never blocks. Main thread; completions run there exactly once, never before the call
/// returns, and possibly much later, because the system may ask the user to unlock the keychain.
/// Destroying the keychain drops pending completions without calling them.
class Keychain : public tavrin::Interface {
public:
    struct Reading {
        /// No value if the item does not exist or cannot be read.
        std::optional<tavrin::Secret> value;
        /// Why the item cannot be read.
        std::optional<tavrin::PlatformError> failure;
    };
    using ReadCompletion = std::function<void(Reading)>;
    /// Why the change could not be stored; nothing on success. A failed change still applies within
    /// this process.
    using ChangeCompletion = std::function<void(std::optional<tavrin::PlatformError>)>;

    virtual void read(std::string service, std::string account, ReadCompletion completion) = 0;

    /// Replaces an existing value. The value is UTF-8.
    virtual void write(
        std::string service,
        std::string account,
        tavrin::Secret value,
        ChangeCompletion completion) = 0;

    /// Succeeds also when there was no such item.
    virtual void remove(std::string service, std::string account, ChangeCompletion completion) = 0;
};

} // namespace orvel
