// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/MotionPreference.h"
#include "platform/Subscribers.h"

#include <functional>
#include <memory>

class QDBusMessage;
class QObject;
class QTimer;

namespace orvel {

class SessionBus;

/// Asks the desktop's portal of settings: "reduced-motion" of the appearance, or where the desktop
/// has no such setting, the animations that are switched off.
///
/// It asks in the background from the first call on, because not every program wants to know, and
/// follows what changes; the first answer may be such a change. Without a bus or a portal, nothing
/// is to be reduced. Borrows the clock.
class PortalMotionPreference final : public MotionPreference {
public:
    /// Gives a connection to share; nothing when this has to connect on its own.
    using ShareBus = std::function<std::unique_ptr<SessionBus>()>;

    PortalMotionPreference(Clock& clock, ShareBus shareBus);
    ~PortalMotionPreference() override;

    [[nodiscard]] bool shouldReduceMotion() override;
    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override;

private:
    void start();
    void setBus(std::unique_ptr<SessionBus> bus);
    void listen();
    void read();
    void take(const QDBusMessage& reply);

    Clock& clock_;
    ShareBus shareBus_;
    Subscribers changed_;
    bool isStarted_ = false;
    bool isReduced_ = false;
    /// Whether the portal may be woken for the answer; once is enough.
    bool mayWake_ = true;
    std::unique_ptr<SessionBus> bus_;
    /// Started by the bus: several changes at once are read once.
    std::unique_ptr<QTimer> reading_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
