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

/// Reads the settings portal: the appearance's "reduced-motion", or on desktops without that
/// setting, whether animations are switched off.
///
/// The first call starts reading in the background, because not every program needs the setting.
/// The first answer and later changes are reported to subscribers. Without a bus or a portal,
/// motion is not reduced. Borrows the clock.
class PortalMotionPreference final : public MotionPreference {
public:
    /// Returns a shared connection; null if this object must connect itself.
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
    /// Whether the next read may start the portal.
    bool mayStartPortal_ = true;
    std::unique_ptr<SessionBus> bus_;
    /// Started by signals, so that several changes at once cause one read.
    std::unique_ptr<QTimer> readTimer_;
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
