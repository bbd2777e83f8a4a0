// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Subscribers.h"
#include "platform/Tray.h"
#include "platform/linux/desktop/TrayItem.h"

#include <functional>
#include <memory>
#include <string>

class QDBusMessage;
class QObject;
class QTimer;

namespace orvel {

class SessionBus;
class TraySelection;

/// Detects a host of status notifier items on the session bus, or an X11 system tray.
///
/// The first call starts the detection in the background, because not every program needs a tray.
/// Changes arrive as signals, without polling. Borrows the clock.
class StatusNotifierTray final : public Tray {
public:
    /// Returns a shared connection; null if this object must connect itself.
    using ShareBus = std::function<std::unique_ptr<SessionBus>()>;

    StatusNotifierTray(Clock& clock, ShareBus shareBus);
    ~StatusNotifierTray() override;

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
    ShareBus shareBus_;
    Subscribers changed_;
    TrayItem item_;
    bool isStarted_ = false;
    bool isAvailable_ = false;
    bool isOnBus_ = false;
    /// Set once the bus is connected or known to be missing.
    std::unique_ptr<TraySelection> selection_;
    std::unique_ptr<SessionBus> bus_;
    /// Started by signals, so that several changes at once cause one call.
    std::unique_ptr<QTimer> askTimer_;
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
