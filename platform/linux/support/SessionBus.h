// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <QDBusConnection>

#include <chrono>
#include <functional>
#include <memory>

class QDBusMessage;
class QDBusPendingCall;
class QObject;
class QTimer;

namespace orvel {

/// A separate connection to the session bus. Closed with the last object that shares it.
class SessionBus final {
public:
    /// After this time the bus counts as missing.
    static constexpr tavrin::Seconds longestConnecting{10};

    /// Null when there is no bus.
    using Connected = std::function<void(std::unique_ptr<SessionBus>)>;

    /// Connects on another thread, because a hanging bus would block. Calls back once on this
    /// thread, never before this returns, unless the context was destroyed before. Borrows the
    /// clock.
    static void connect(QObject* context, Clock& clock, Connected connected);

    /// Blocks until connected, for the limit at most; for start-up only. Returns null when there is
    /// no bus or it does not answer in time. A later connection is passed to the callback on this
    /// thread, unless the context was destroyed before.
    [[nodiscard]] static std::unique_ptr<SessionBus>
    await(std::chrono::milliseconds limit, QObject* context, Connected late);

    /// Returns a shared connection; null when there is none to share.
    using Share = std::function<std::unique_ptr<SessionBus>()>;

    /// Calls back at once with a shared connection, or else connects.
    static void
    shareOrConnect(const Share& share, QObject* context, Clock& clock, const Connected& connected);

    /// A call of the bus daemon's method.
    [[nodiscard]] static QDBusMessage daemonCall(const char* method);

    /// Calls back once on this thread when the call has finished, unless the context was destroyed
    /// before. The callback may destroy the context.
    static void onReply(
        const QDBusPendingCall& call,
        QObject* context,
        std::function<void(const QDBusPendingCall&)> finished);

    /// Takes over a connection whose name is used only once.
    explicit SessionBus(QDBusConnection connection);
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// Returns another handle to the same connection, because connecting again takes time.
    [[nodiscard]] std::unique_ptr<SessionBus> share() const;

    /// Calls back once on this thread when the bus is lost. The callback must not destroy this
    /// object.
    void onLoss(std::function<void()> lost);

    [[nodiscard]] bool isConnected() const { return connection_->isConnected(); }
    [[nodiscard]] QDBusConnection& connection() { return *connection_; }

private:
    explicit SessionBus(std::shared_ptr<QDBusConnection> connection);

    std::shared_ptr<QDBusConnection> connection_;
    std::unique_ptr<QTimer> loss_;
};

} // namespace orvel
