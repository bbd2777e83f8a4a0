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
class TraySelection;

/// Whether there is a tray: a host of status notifier items on the session bus, or on an X display
/// the window that other programs' icons are put into.
///
/// Main thread. Looks in the background from its making on and is told of changes, so waiting for a
/// tray costs nothing. Borrows the clock.
class TrayHost final {
public:
    /// Connects on its own without a bus to share. Calls back whenever the answer has changed.
    TrayHost(Clock& clock, std::unique_ptr<SessionBus> bus, std::function<void()> changed);
    ~TrayHost();
    TrayHost(const TrayHost&) = delete;
    TrayHost& operator=(const TrayHost&) = delete;

    [[nodiscard]] bool isPresent() const { return isPresent_; }

private:
    void setBus(std::unique_ptr<SessionBus> bus);
    void listen();
    void askBus();
    void update();

    std::function<void()> changed_;
    bool isPresent_ = false;
    bool isOnBus_ = false;
    /// As soon as there is a bus, or there is none.
    std::unique_ptr<TraySelection> selection_;
    std::unique_ptr<SessionBus> bus_;
    /// Started by the bus: several changes at once are one question.
    std::unique_ptr<QTimer> asking_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> context_;
};

} // namespace orvel
