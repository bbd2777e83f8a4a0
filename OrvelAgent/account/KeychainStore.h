// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/Session.h"
#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "platform/Keychain.h"

#include <QByteArray>
#include <QCoroTask>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// Stores the session in the keychain. Borrows the keychain. Main thread.
class KeychainStore final {
public:
    struct Reading {
        /// No value if there is no session or it cannot be read or decoded.
        std::optional<Session> session;
        /// Another process has replaced or removed the session since this one stored or read it.
        bool isChangedElsewhere = false;
        bool isUnreadable = false;
    };

    KeychainStore(Keychain& keychain, const std::string& bundleIdentifier);

    /// The user may first have to unlock the keychain. Throws `tavrin::TaskCancelled` at once if
    /// cancelled.
    QCoro::Task<Reading> load(tavrin::CancellationToken cancellation);

    /// Like `load`, but reads again if a session was saved during the read.
    static QCoro::Task<Reading>
    loadLatest(std::shared_ptr<KeychainStore> store, tavrin::CancellationToken cancellation);

    /// Whether the last reading failed, for example because the user did not unlock the keychain.
    [[nodiscard]] bool isUnreadable() const { return isUnreadable_; }

    /// Takes over a change that another process made.
    void accept(const Reading& reading);

    /// Later reads return the new session, even before it is stored.
    void save(const Session& session);

    /// Also removes the items of earlier versions.
    void remove();

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
    std::uint64_t changeCount_ = 0;
    bool isUnreadable_ = false;
    /// Of the refresh token that this process stored or read last. Empty without a session, no
    /// value before the first reading.
    std::optional<QByteArray> fingerprint_;
};

} // namespace orvel
