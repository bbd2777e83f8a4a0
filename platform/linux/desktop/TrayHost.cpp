// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/TrayHost.h"

#include "platform/linux/desktop/TraySelection.h"
#include "platform/linux/support/SessionBus.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <QTimer>

#include <utility>

namespace orvel {

namespace {

constexpr auto watcherName = "org.kde.StatusNotifierWatcher";
constexpr auto watcherPath = "/StatusNotifierWatcher";

} // namespace

TrayHost::TrayHost(Clock& clock, std::unique_ptr<SessionBus> bus, std::function<void()> changed)
    : changed_(std::move(changed)),
      asking_(std::make_unique<QTimer>()),
      context_(std::make_unique<QObject>()) {
    asking_->setSingleShot(true);
    QObject::connect(asking_.get(), &QTimer::timeout, context_.get(), [this] { askBus(); });
    if (bus) {
        setBus(std::move(bus));
        isPresent_ = selection_->isOwned();
        return;
    }
    SessionBus::connect(context_.get(), clock, [this](std::unique_ptr<SessionBus> connected) {
        setBus(std::move(connected));
        update();
    });
}

TrayHost::~TrayHost() = default;

void TrayHost::setBus(std::unique_ptr<SessionBus> bus) {
    bus_ = std::move(bus);
    if (bus_) {
        bus_->onLoss([this] {
            isOnBus_ = false;
            update();
        });
        listen();
        askBus();
    }
    // While the bus answers.
    selection_ = std::make_unique<TraySelection>([this] { update(); });
}

void TrayHost::listen() {
    // From whomever, because asking Qt for a certain sender would wait for the bus.
    bus_->connection().connect(
        QString(),
        QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("NameOwnerChanged"),
        {QString::fromLatin1(watcherName)},
        QString(),
        asking_.get(),
        SLOT(start()));
    for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        bus_->connection().connect(
            QString(),
            QString::fromLatin1(watcherPath),
            QString::fromLatin1(watcherName),
            QString::fromLatin1(signal),
            asking_.get(),
            SLOT(start()));
    }
}

void TrayHost::askBus() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(watcherName),
        QString::fromLatin1(watcherPath),
        QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    call.setAutoStartService(false);
    call << QString::fromLatin1(watcherName) << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* const watcher =
        new QDBusPendingCallWatcher(bus_->connection().asyncCall(call), context_.get());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context_.get(), [this, watcher] {
        watcher->deleteLater();
        const QVariant value = watcher->reply().arguments().value(0);
        isOnBus_ = !watcher->isError() && value.value<QDBusVariant>().variant().toBool();
        update();
    });
}

void TrayHost::update() {
    const bool isPresent = isOnBus_ || (selection_ && selection_->isOwned());
    if (std::exchange(isPresent_, isPresent) != isPresent) {
        changed_();
    }
}

} // namespace orvel
