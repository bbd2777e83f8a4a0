// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>

class QDBusMessage;
class QObject;
class QString;

namespace orvel {

class SessionBus;

/// A name on the session bus, which one process can own, with an object that other copies call to
/// bring the application to the front (org.freedesktop.Application). Without a bus, other copies
/// cannot do that; a slow bus is used as soon as it answers. Main thread.
class InstanceName final {
public:
    struct Own {};
    /// Another process owns the name.
    struct OwnedBy {
        std::int64_t processIdentifier = 0;
    };
    struct NoBus {};
    using Outcome = std::variant<Own, OwnedBy, NoBus>;

    /// The timeout of each call to the bus and to the other copy.
    static constexpr std::chrono::milliseconds longestWait{2'000};

    /// Calls back from the event loop whenever another program activates this one.
    InstanceName(std::string name, std::function<void()> activated);
    ~InstanceName();
    InstanceName(const InstanceName&) = delete;
    InstanceName& operator=(const InstanceName&) = delete;

    /// Takes the name until this object is destroyed, unless another process owns it. Blocks. If
    /// the bus does not answer in time, takes the name once the bus answers and the name is free.
    [[nodiscard]] Outcome take();

    /// Shares its connection to the bus; null when it has none.
    [[nodiscard]] std::unique_ptr<SessionBus> shareBus() const;

    /// Asks the name's owner to come to the front. Blocks.
    void activateOwner();

private:
    class Application;
    /// What to do when another process owns the name.
    enum class QueuePolicy : std::uint32_t;

    [[nodiscard]] QDBusMessage requestName(QueuePolicy policy) const;
    void queueForName();
    [[nodiscard]] QString path() const;

    std::string name_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<SessionBus> bus_;
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
