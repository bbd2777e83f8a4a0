// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Keychain.h"
#include "platform/LogStore.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/SessionBus.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

namespace QKeychain {
class Job;
}

namespace orvel {

/// The desktop's Secret Service, such as GNOME Keyring or KWallet, through QtKeychain. Items go to
/// the default collection, with the schema "org.qt.keychain".
///
/// There is no plain-text fallback: a change that the service does not accept is kept in memory
/// until this object is destroyed. The first failed write and the first failed removal are logged.
/// Needs Qt's GLib event loop; without it every operation fails. The first operation connects.
///
/// Borrows the clock and the log store. Destroying the object drops queued operations; a running
/// one still reaches the service.
class SecretServiceKeychain final : public Keychain {
public:
    SecretServiceKeychain(Clock& clock, LogStore& logStore);

    void read(std::string service, std::string account, ReadCompletion completion) override;
    void write(
        std::string service,
        std::string account,
        tavrin::Secret value,
        ChangeCompletion completion) override;
    void remove(std::string service, std::string account, ChangeCompletion completion) override;

private:
    /// Service and account.
    using Name = std::pair<std::string, std::string>;
    using Failure = std::optional<tavrin::PlatformError>;
    /// Whether the item is locked, or the error of the search.
    using Found = std::variant<bool, tavrin::PlatformError>;

    enum class ChangeKind { Write, Removal };

    /// A change that has not reached the service; no value means removal.
    struct Change {
        std::uint64_t number = 0;
        std::optional<tavrin::Secret> value;
    };

    /// Makes reads see the change. Returns its number.
    std::uint64_t hold(const Name& name, std::optional<tavrin::Secret> value);
    /// Runs the operation when all earlier ones have called `endOperation`.
    void enqueue(std::function<void()> operation);
    /// Call at the end of each operation, just before its completion.
    void endOperation();
    void endChange(
        const Name& name,
        std::uint64_t number,
        ChangeKind kind,
        const Failure& failure,
        const ChangeCompletion& completion);

    void
    startJob(QKeychain::Job* job, const Name& name, std::function<void(const QKeychain::Job&)> end);
    void findLocked(const Name& name, std::function<void(const Found&)> end);
    /// The part of `findLocked` that needs the bus.
    void search(const Name& name, std::function<void(const Found&)> end);
    /// Makes the service ask the user, who may refuse.
    void unlock(const Name& name, std::function<void()> end);
    /// Fails for a locked item, which the service would keep without reporting an error.
    void
    removeUnlocked(const Name& name, const Found& found, std::function<void(const Failure&)> end);

    void logChangeFailure(ChangeKind kind, std::string_view reason);
    void logReadFailure(std::string_view reason);

    Clock& clock_;
    LogStore& logStore_;
    std::map<Name, Change> changes_;
    std::uint64_t lastChange_ = 0;
    /// The first one is running. QtKeychain's own queue cannot drop waiting jobs.
    std::deque<std::function<void()>> operations_;
    bool hasLoggedMemoryOnly_ = false;
    bool hasLoggedNotRemoved_ = false;
    bool hasLoggedReadFailure_ = false;
    std::unique_ptr<SessionBus> bus_;
    /// The latest of the threads that load libsecret. Each waits for the previous one.
    std::jthread loading_;
    bool isLoaded_ = false;
    /// Destroyed first: drops pending replies.
    CallbackContext callbackContext_;
};

} // namespace orvel
