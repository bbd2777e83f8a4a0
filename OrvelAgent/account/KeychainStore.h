// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/Session.h"
#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "platform/Keychain.h"

#include <QCoroTask>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// Stores the session in the keychain. Borrows the keychain. Main thread.
class KeychainStore final {
public:
    KeychainStore(Keychain& keychain, const std::string& bundleIdentifier);

    /// Returns no value if there is no session or it cannot be decoded. The user may first have to
    /// unlock the keychain. Throws `tavrin::TaskCancelled` at once if cancelled.
    QCoro::Task<std::optional<Session>> load(tavrin::CancellationToken cancellation) const;

    /// Like `load`, but reads again if a session was saved during the read.
    static QCoro::Task<std::optional<Session>>
    loadLatest(std::shared_ptr<const KeychainStore> store, tavrin::CancellationToken cancellation);

    /// Later reads return the new session, even before it is stored.
    void save(const Session& session);

    /// Also removes the items of earlier versions.
    void remove() const;

    /// Waits until all changes so far are stored or have failed. Returns the error of an item whose
    /// last change failed, if any. Throws `tavrin::TaskCancelled` at once if cancelled.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    settled(tavrin::CancellationToken cancellation) const;

private:
    struct Changes;

    /// Counts a change of that account's item.
    [[nodiscard]] Keychain::ChangeCompletion changeOf(std::string account) const;

    Keychain& keychain_;
    const std::string service_;
    const std::shared_ptr<Changes> changes_;
    std::uint64_t saveCount_ = 0;
};

} // namespace orvel
