// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <functional>
#include <memory>

class QDBusMessage;
class QObject;
class QTimer;

namespace orvel {

class SessionBus;

/// Whether the user wants less motion, by the desktop's portal of settings: "reduced-motion" of the
/// appearance, or where the desktop has no such setting, the animations that are switched off.
///
/// Main thread. Asks in the background from its making on, and follows what changes; without a bus
/// or a portal, nothing is to be reduced. Borrows the clock.
class MotionPreference final {
public:
    /// Connects on its own without a bus to share. Calls back whenever the preference has changed;
    /// the first answer of the portal may be such a change.
    MotionPreference(Clock& clock, std::unique_ptr<SessionBus> bus, std::function<void()> changed);
    ~MotionPreference();
    MotionPreference(const MotionPreference&) = delete;
    MotionPreference& operator=(const MotionPreference&) = delete;

    [[nodiscard]] bool isReduced() const { return isReduced_; }

private:
    void setBus(std::unique_ptr<SessionBus> bus);
    void listen();
    void read();
    void take(const QDBusMessage& reply);

    std::function<void()> changed_;
    bool isReduced_ = false;
    /// Whether the portal may be woken for the answer; once is enough.
    bool mayWake_ = true;
    std::unique_ptr<SessionBus> bus_;
    /// Started by the bus: several changes at once are read once.
    std::unique_ptr<QTimer> reading_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> context_;
};

} // namespace orvel
