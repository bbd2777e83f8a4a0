// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/KeychainStore.h"
#include "OrvelAgent/account/Session.h"

#include <cstdint>
#include <memory>

namespace orvel {

/// The session in the keychain. Borrows the keychain. Main thread.
class SessionStore final {
public:
    SessionStore(Keychain& keychain, const std::string& bundleIdentifier);

    /// No value when there is no session or it cannot be decoded. Waits as long as the user takes
    /// to unlock the keychain; throws `tavrin::TaskCancelled` at once when cancelled.
    QCoro::Task<std::optional<Session>> load(tavrin::CancellationToken cancellation) const;

    /// As `load`, but reads again when a session was saved during the read.
    static QCoro::Task<std::optional<Session>>
    loadLatest(std::shared_ptr<const SessionStore> store, tavrin::CancellationToken cancellation);

    void save(const Session& session);

    /// Also removes what earlier versions kept.
    void remove() const;

    /// As `KeychainStore::settled`.
    QCoro::Task<std::optional<tavrin::PlatformError>>
    settled(tavrin::CancellationToken cancellation) const;

private:
    const KeychainStore keychain_;
    std::uint64_t saveCount_ = 0;
};

} // namespace orvel
