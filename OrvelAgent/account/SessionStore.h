// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/account/Session.h"

#include <cstdint>
#include <memory>

namespace orvel {

/// Stores the session in the keychain. Borrows the keychain. Main thread.
class SessionStore final {
public:
    SessionStore(Keychain& keychain, const std::string& bundleIdentifier);

    /// Returns no value if there is no session or it cannot be decoded. The user may first have to
    /// unlock the keychain. Throws `tavrin::TaskCancelled` at once if cancelled.
    QCoro::Task<std::optional<Session>> load(tavrin::CancellationToken cancellation) const;

    /// Like `load`, but reads again if a session was saved during the read.
    static QCoro::Task<std::optional<Session>>
    loadLatest(std::shared_ptr<const SessionStore> store, tavrin::CancellationToken cancellation);

    void save(const Session& session);

    /// Also removes the items of earlier versions.
    void remove() const;

    /// Like `KeychainStore::settled`.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    settled(tavrin::CancellationToken cancellation) const;

private:
    const KeychainStore keychain_;
    std::uint64_t saveCount_ = 0;
};

} // namespace orvel
