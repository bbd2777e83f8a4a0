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

/// The user's keychain. The system's functions may wait for the user, so they run on a serial
/// queue. Calls in the queue still run after this object is destroyed.
///
/// A change that fails is kept in memory until this object is destroyed, and is logged. Borrows the
/// log store.
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

    /// A change that is pending or has failed. A null value is a removal.
    struct Change {
        std::uint64_t number = 0;
        std::shared_ptr<const tavrin::Secret> value;
    };

    /// Later reads return the new value. `work` runs on the queue.
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
    PendingCalls<Reading> reads_;
    PendingCalls<Failure> writes_;
};

} // namespace orvel
