// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Subscribers.h"
#include "platform/Tray.h"
#include "platform/linux/desktop/TrayItem.h"
#include "platform/linux/desktop/TraySelection.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/SessionBus.h"

#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// Detects a host of status notifier items on the session bus, or an X11 system tray.
///
/// The first call starts the detection in the background, because not every program needs a tray.
/// Changes arrive as signals, without polling. Borrows the clock.
class StatusNotifierTray final : public Tray {
public:
    StatusNotifierTray(Clock& clock, SessionBus::Share shareBus);

    [[nodiscard]] bool isAvailable() override;
    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override;
    [[nodiscard]] bool isMenuBar() const override { return false; }
    void setTitle(const std::string& title) override { item_.setTitle(title); }

private:
    void start();
    void setBus(std::unique_ptr<SessionBus> bus);
    void listen();
    void askBus();
    void update();

    Clock& clock_;
    SessionBus::Share shareBus_;
    Subscribers changed_;
    TrayItem item_;
    bool isStarted_ = false;
    bool isAvailable_ = false;
    bool isOnBus_ = false;
    /// Set once the bus is connected or known to be missing.
    std::optional<TraySelection> selection_;
    std::unique_ptr<SessionBus> bus_;
    /// Started by signals, so that several changes at once cause one call.
    QTimer askTimer_;
    /// Destroyed first: drops pending callbacks.
    CallbackContext callbackContext_;
};

} // namespace orvel
