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

/// A program's name on the session bus, which one process can have, and the object under it that
/// other copies ask to come to the front (org.freedesktop.Application). A bus that is lost later
/// only takes the asking along, and one that is late brings it. Main thread.
class InstanceName final {
public:
    struct Own {};
    /// Another process has it.
    struct OwnedBy {
        std::int64_t processIdentifier = 0;
    };
    struct NoBus {};
    using Outcome = std::variant<Own, OwnedBy, NoBus>;

    /// How long the bus may take for one answer before it counts as none, and the other copy to
    /// hear that it is asked.
    static constexpr std::chrono::milliseconds longestWait{2'000};

    /// Calls back, from the event loop, whenever another program asks this one to show itself.
    InstanceName(std::string name, std::function<void()> activated);
    ~InstanceName();
    InstanceName(const InstanceName&) = delete;
    InstanceName& operator=(const InstanceName&) = delete;

    /// Takes the name for as long as this object lives, unless another process has it. Waits. When
    /// the bus does not answer in time, the name is taken as soon as it does and nobody else has
    /// it.
    [[nodiscard]] Outcome take();

    /// Its connection to the bus, for others who ask something there, or nothing when it has none.
    [[nodiscard]] std::unique_ptr<SessionBus> shareBus() const;

    /// Asks whoever has the name to come to the front. Waits.
    void activateOwner();

private:
    class Application;
    /// What to do when somebody else has the name.
    enum class Otherwise : std::uint32_t;

    [[nodiscard]] QDBusMessage requestName(Otherwise otherwise) const;
    void takeLate();
    [[nodiscard]] QString path() const;

    std::string name_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<SessionBus> bus_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
