// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/SessionBus.h"

#include "platform/linux/StartThread.h"

#include <QDBusObjectPath>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QTimer>

#include <future>
#include <thread>
#include <utility>

namespace orvel {

namespace {

QString nextConnectionName() {
    static int last = 0;
    return QStringLiteral("orvel %1").arg(++last);
}

/// The latest of the threads that connect. The end of the process waits for it, because Qt's part
/// of a connection must not go before: this is made after that, and so destroyed earlier.
std::jthread& latestThread() {
    static const bool isQtsPartMade = !QDBusConnection(QStringLiteral("none")).isConnected();
    static std::jthread thread;
    static_cast<void>(isQtsPartMade);
    return thread;
}

/// What comes of the thread is dropped with it.
struct Connecting final : QObject {
    using QObject::QObject;
    std::unique_ptr<Clock::Timer> timer;
};

std::unique_ptr<SessionBus> connectNamed(const QString& name) {
    auto bus = std::make_unique<SessionBus>(
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, name));
    return bus->isConnected() ? std::move(bus) : nullptr;
}

} // namespace

void SessionBus::connect(QObject* context, Clock& clock, Connected connected) {
    // Made before the thread that reads the bus, Qt's registry of types outlives it at the end.
    qRegisterMetaType<QDBusObjectPath>();
    auto* const connecting = new Connecting(context);
    connecting->timer = clock.schedule(longestConnecting, [connecting, connected] {
        const Connected end = connected;
        delete connecting;
        end(nullptr);
    });
    std::jthread& latest = latestThread();
    // Each thread waits for the one before, at its end.
    latest = startThread(
        connecting,
        [name = nextConnectionName(), previous = std::move(latest)] { return connectNamed(name); },
        [connecting, connected](std::unique_ptr<SessionBus> bus) {
            connecting->timer.reset();
            connecting->deleteLater();
            connected(std::move(bus));
        });
}

std::unique_ptr<SessionBus> SessionBus::await(std::chrono::milliseconds limit) {
    qRegisterMetaType<QDBusObjectPath>();
    std::promise<std::unique_ptr<SessionBus>> promise;
    auto bus = promise.get_future();
    std::jthread& latest = latestThread();
    latest = std::jthread(
        [name = nextConnectionName(),
         promise = std::move(promise),
         previous = std::move(latest)]() mutable { promise.set_value(connectNamed(name)); });
    // One that comes too late goes with the promise.
    return bus.wait_for(limit) == std::future_status::ready ? bus.get() : nullptr;
}

SessionBus::SessionBus(QDBusConnection connection) : connection_(std::move(connection)) {}

SessionBus::~SessionBus() {
    QDBusConnection::disconnectFromBus(connection_.name());
}

void SessionBus::onLoss(std::function<void()> lost) {
    // Qt takes nothing but a slot by its name, and a timer has one.
    loss_ = std::make_unique<QTimer>();
    loss_->setSingleShot(true);
    QObject::connect(loss_.get(), &QTimer::timeout, loss_.get(), std::move(lost));
    connection_.connect(
        QString(),
        QStringLiteral("/org/freedesktop/DBus/Local"),
        QStringLiteral("org.freedesktop.DBus.Local"),
        QStringLiteral("Disconnected"),
        loss_.get(),
        SLOT(start()));
}

} // namespace orvel
