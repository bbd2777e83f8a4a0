// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Keychain.h"
#include "platform/LogStore.h"
#include "platform/macos/support/PendingCalls.h"

#include <dispatch/dispatch.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

/// The user's keychain. The system's functions may wait for the user, so they run one after the
/// other on a queue of their own, where what was started is done even when this object is gone.
///
/// What the keychain does not take is held in memory until this object is destroyed, and the log
/// says so. Borrows the log store.
class SecurityKeychain final : public Keychain {
public:
    explicit SecurityKeychain(LogStore& logStore);

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

    /// A change that the keychain does not have, or not yet; no value is a removal.
    struct Change {
        std::uint64_t number = 0;
        std::shared_ptr<const tavrin::Secret> value;
    };

    /// Reads see the change from now on. What gives its failure runs on the queue.
    void change(
        Name name,
        std::shared_ptr<const tavrin::Secret> value,
        std::string_view whatFailed,
        std::function<Failure()> work,
        ChangeCompletion completion);

    LogStore& logStore_;
    std::map<Name, Change> changes_;
    std::uint64_t lastChange_ = 0;
    dispatch_queue_t queue_;
    PendingCalls<std::shared_ptr<const tavrin::Secret>> reads_;
    PendingCalls<Failure> writes_;
};

} // namespace orvel
