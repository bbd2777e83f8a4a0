// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/InstanceRegistry.h"
#include "platform/Subscribers.h"
#include "platform/linux/desktop/InstanceLock.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/SessionBus.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QDBusMessage;
class QString;

namespace orvel {

/// Detects other copies by a name on the session bus, which one process can own, and by a lock file
/// those on another bus or without one.
///
/// Other copies call an object on the bus to bring this one to the front
/// (org.freedesktop.Application). Without a bus they cannot do that; a slow bus is used as soon as
/// it answers.
class SessionInstanceRegistry final : public InstanceRegistry {
public:
    SessionInstanceRegistry();
    ~SessionInstanceRegistry() override;

    /// If the bus does not answer in time, takes the name once the bus answers and the name is
    /// free.
    [[nodiscard]] std::optional<RunningApplication>
    runningCopy(const std::string& identifier) override;
    /// Does nothing for a copy that cannot be reached on the session bus.
    void activateCopy(const RunningApplication& application) override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override;

    /// Shares its connection, because another one would slow down start-up. Null before
    /// `runningCopy` or without a bus.
    [[nodiscard]] std::unique_ptr<SessionBus> shareBus() const;

private:
    class Application;
    /// What to do when another process owns the name.
    enum class QueuePolicy : std::uint32_t;

    /// Takes the name. Returns its owner if that is another process.
    [[nodiscard]] std::optional<RunningApplication> takeName();
    [[nodiscard]] QDBusMessage requestName(QueuePolicy policy) const;
    void queueForName();
    [[nodiscard]] QString path() const;

    Subscribers activated_;
    /// The copies' identifier; empty before `runningCopy`.
    std::string name_;
    InstanceLock lock_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<SessionBus> bus_;
    /// Destroyed first: drops pending callbacks.
    CallbackContext callbackContext_;
};

} // namespace orvel
