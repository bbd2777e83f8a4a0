// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Keychain.h"
#include "platform/LogStore.h"

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

class QObject;

namespace QKeychain {
class Job;
}

namespace orvel {

class SessionBus;

/// The desktop's Secret Service, such as GNOME Keyring or KWallet, through QtKeychain. Items go to
/// the default collection, with the schema "org.qt.keychain".
///
/// There is no plain-text fallback: what the service does not take is held in memory until this
/// object is destroyed, and the log says so, once, as it does of what could not be removed. Needs
/// Qt's GLib event loop, without which it is as if there were no service. Nothing is connected
/// before the first operation.
///
/// Borrows the clock and the log store. An operation that is on its way when the object is
/// destroyed still reaches the service; those behind it do not.
class SecretServiceKeychain final : public Keychain {
public:
    SecretServiceKeychain(Clock& clock, LogStore& logStore);
    ~SecretServiceKeychain() override;

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
    /// Whether the service has the item under lock, or why it cannot be asked.
    using Found = std::variant<bool, tavrin::PlatformError>;

    enum class ChangeKind { Write, Removal };

    /// A change that the service does not have, or not yet; no value is a removal.
    struct Change {
        std::uint64_t number = 0;
        std::optional<tavrin::Secret> value;
    };

    /// Reads see the change from now on. Gives its number.
    std::uint64_t hold(const Name& name, std::optional<tavrin::Secret> value);
    /// Runs it when all before it have called `endOperation`.
    void enqueue(std::function<void()> operation);
    /// As the last thing an operation does, apart from its completion.
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
    /// Of `findLocked`, once there is a bus.
    void search(const Name& name, std::function<void(const Found&)> end);
    /// Asks the user, who may refuse.
    void unlock(const Name& name, std::function<void()> end);
    /// The service leaves a locked item alone without a word, so its being one is a failure.
    void
    removeUnlocked(const Name& name, const Found& found, std::function<void(const Failure&)> end);

    void logChangeFailure(ChangeKind kind, std::string_view reason);
    void logReadFailure(std::string_view reason);

    Clock& clock_;
    LogStore& logStore_;
    std::map<Name, Change> changes_;
    std::uint64_t lastChange_ = 0;
    /// The first one runs. The service's own queue cannot be told to drop what has not begun.
    std::deque<std::function<void()>> operations_;
    bool hasLoggedMemoryOnly_ = false;
    bool hasLoggedNotRemoved_ = false;
    bool hasLoggedReadFailure_ = false;
    std::unique_ptr<SessionBus> bus_;
    /// The latest of the threads that load the library of the service; each waits for the one
    /// before.
    std::jthread loading_;
    bool isLoaded_ = false;
    /// Destroyed first: what comes back from the service is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
