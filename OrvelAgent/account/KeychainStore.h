// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/Secret.h"
#include "platform/Keychain.h"

#include <QCoroTask>

#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// The keychain items of one service, by account name. Borrows the keychain. Main thread.
class KeychainStore final {
public:
    KeychainStore(Keychain& keychain, std::string service);

    /// Returns no value if the item is missing or unreadable. The user may first have to unlock the
    /// keychain. Throws `tavrin::TaskCancelled` at once if cancelled.
    QCoro::Task<std::optional<tavrin::Secret>>
    read(std::string key, tavrin::CancellationToken cancellation) const;

    /// Replaces the item. Later reads return the new value, even before it is stored.
    void write(std::string key, tavrin::Secret value) const;

    void remove(std::string key) const;

    /// Waits until all changes so far are stored or have failed. Returns the error of an item whose
    /// last change failed, if any. Throws `tavrin::TaskCancelled` at once if cancelled.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    settled(tavrin::CancellationToken cancellation) const;

private:
    struct Changes;

    static Keychain::ChangeCompletion completion(std::shared_ptr<Changes> changes, std::string key);

    Keychain& keychain_;
    std::string service_;
    std::shared_ptr<Changes> changes_;
};

} // namespace orvel
