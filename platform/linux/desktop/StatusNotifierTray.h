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

/// A host of status notifier items on the session bus, or on an X display the window that other
/// programs' icons are put into.
///
/// It is looked for in the background from the first call on, because not every program wants to
/// know, and changes are signalled, so waiting for a tray costs nothing. Borrows the clock.
class StatusNotifierTray final : public Tray {
public:
    /// Gives a connection to share; nothing when this has to connect on its own.
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
    /// As soon as there is a bus, or there is none.
    std::unique_ptr<TraySelection> selection_;
    std::unique_ptr<SessionBus> bus_;
    /// Started by the bus: several changes at once are one question.
    std::unique_ptr<QTimer> asking_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
