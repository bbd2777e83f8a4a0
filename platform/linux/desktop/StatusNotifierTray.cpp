// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/StatusNotifierTray.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QString>

#include <utility>

namespace orvel {

namespace {

constexpr auto watcherName = "org.kde.StatusNotifierWatcher";
constexpr auto watcherPath = "/StatusNotifierWatcher";

} // namespace

StatusNotifierTray::StatusNotifierTray(Clock& clock, SessionBus::Share shareBus)
    : clock_(clock), shareBus_(std::move(shareBus)) {
    askTimer_.setSingleShot(true);
    askTimer_.callOnTimeout(&callbackContext_, [this] { askBus(); });
}

bool StatusNotifierTray::isAvailable() {
    start();
    return isAvailable_;
}

std::unique_ptr<Subscription> StatusNotifierTray::onChange(std::function<void()> changed) {
    start();
    return changed_.add(std::move(changed));
}

void StatusNotifierTray::start() {
    if (std::exchange(isStarted_, true)) {
        return;
    }
    SessionBus::shareOrConnect(
        shareBus_, &callbackContext_, clock_, [this](std::unique_ptr<SessionBus> bus) {
            setBus(std::move(bus));
            update();
        });
}

void StatusNotifierTray::setBus(std::unique_ptr<SessionBus> bus) {
    bus_ = std::move(bus);
    if (bus_) {
        bus_->onLoss([this] {
            isOnBus_ = false;
            update();
        });
        listen();
        askBus();
    }
    // The X server is queried while the bus call is pending.
    selection_.emplace([this] { update(); });
}

void StatusNotifierTray::listen() {
    // Accept the signal from any sender: filtering by sender would make Qt block on the bus.
    bus_->connection().connect(
        QString(),
        QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("NameOwnerChanged"),
        {QString::fromLatin1(watcherName)},
        QString(),
        &askTimer_,
        SLOT(start()));
    for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        bus_->connection().connect(
            QString(),
            QString::fromLatin1(watcherPath),
            QString::fromLatin1(watcherName),
            QString::fromLatin1(signal),
            &askTimer_,
            SLOT(start()));
    }
}

void StatusNotifierTray::askBus() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(watcherName),
        QString::fromLatin1(watcherPath),
        QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    call.setAutoStartService(false);
    call << QString::fromLatin1(watcherName) << QStringLiteral("IsStatusNotifierHostRegistered");
    SessionBus::onReply(
        bus_->connection().asyncCall(call),
        &callbackContext_,
        [this](const QDBusPendingCall& finished) {
            const QVariant value = finished.reply().arguments().value(0);
            isOnBus_ = !finished.isError() && value.value<QDBusVariant>().variant().toBool();
            update();
        });
}

void StatusNotifierTray::update() {
    const bool isAvailable = isOnBus_ || (selection_ && selection_->isOwned());
    if (std::exchange(isAvailable_, isAvailable) != isAvailable) {
        changed_.call();
    }
}

} // namespace orvel
