// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/MotionPreference.h"
#include "platform/Subscribers.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/SessionBus.h"

#include <QTimer>

#include <functional>
#include <memory>

namespace orvel {

/// Reads the settings portal: the appearance's "reduced-motion", or on desktops without that
/// setting, whether animations are switched off.
///
/// The first call starts reading in the background, because not every program needs the setting.
/// The first answer and later changes are reported to subscribers. Without a bus or a portal,
/// motion is not reduced. Borrows the clock.
class PortalMotionPreference final : public MotionPreference {
public:
    PortalMotionPreference(Clock& clock, SessionBus::Share shareBus);

    [[nodiscard]] bool shouldReduceMotion() override;
    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override;

private:
    void start();
    void listen();
    void read();
    void take(const QDBusMessage& reply);

    Clock& clock_;
    SessionBus::Share shareBus_;
    Subscribers changed_;
    bool isStarted_ = false;
    bool isReduced_ = false;
    /// Whether the next read may start the portal.
    bool mayStartPortal_ = true;
    std::unique_ptr<SessionBus> bus_;
    /// Started by signals, so that several changes at once cause one read.
    QTimer readTimer_;
    /// Destroyed first: drops pending callbacks.
    CallbackContext callbackContext_;
};

} // namespace orvel
