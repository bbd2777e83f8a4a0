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

/// The keychain items of one service, by their account name. Borrows the keychain. Main thread.
class KeychainStore final {
public:
    KeychainStore(Keychain& keychain, std::string service);

    /// The item's value; nothing when there is none or it cannot be read. Waits as long as the user
    /// takes to unlock the keychain; throws `tavrin::TaskCancelled` at once when cancelled.
    QCoro::Task<std::optional<tavrin::Secret>>
    read(std::string key, tavrin::CancellationToken cancellation) const;

    /// Replaces the item. Later reads see it at once, while it is still being stored.
    void write(std::string key, tavrin::Secret value) const;

    void remove(std::string key) const;

    /// Waits until all changes so far are stored, or have failed to be. Gives the reason why an
    /// item's last change will not outlive this process, if there is such an item. Throws
    /// `tavrin::TaskCancelled` at once when cancelled.
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
