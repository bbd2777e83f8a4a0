// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <QDBusConnection>

#include <chrono>
#include <functional>
#include <memory>

class QDBusPendingCall;
class QTimer;
class QObject;

namespace orvel {

/// A connection to the session bus of its owner's own, which ends with this object and those that
/// share it.
class SessionBus final {
public:
    /// Longer, and the bus counts as none.
    static constexpr tavrin::Seconds longestConnecting{10};

    /// Nothing when there is no bus.
    using Connected = std::function<void(std::unique_ptr<SessionBus>)>;

    /// Connects on a thread, because a bus that hangs would be waited for. Calls back once, on this
    /// thread and never before it returns, unless the context has gone by then. Borrows the clock.
    static void connect(QObject* context, Clock& clock, Connected connected);

    /// Waits for the connection, but not for longer than that: for the start of a program. Gives
    /// nothing when there is no bus, or none that answers in time; one that does so later goes to
    /// the callback, on this thread, unless the context has gone by then.
    [[nodiscard]] static std::unique_ptr<SessionBus>
    await(std::chrono::milliseconds limit, QObject* context, Connected late);

    /// Calls back once, on this thread, when the call is finished, unless the context has gone by
    /// then.
    static void onReply(
        const QDBusPendingCall& call,
        QObject* context,
        std::function<void(const QDBusPendingCall&)> finished);

    /// Of a connection with a name of its own.
    explicit SessionBus(QDBusConnection connection);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// For another user of the same connection, who saves the time that one of its own would take.
    [[nodiscard]] std::unique_ptr<SessionBus> share() const;

    /// Calls back, on this thread, when the bus is lost. Once; not for the callback to destroy
    /// this.
    void onLoss(std::function<void()> lost);

    [[nodiscard]] bool isConnected() const { return connection_->isConnected(); }
    [[nodiscard]] QDBusConnection& connection() { return *connection_; }

private:
    explicit SessionBus(std::shared_ptr<QDBusConnection> connection);

    std::shared_ptr<QDBusConnection> connection_;
    std::unique_ptr<QTimer> loss_;
};

} // namespace orvel
