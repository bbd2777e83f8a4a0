// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/PortalMotionPreference.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include <utility>

namespace orvel {

namespace {

constexpr auto appearance = "org.freedesktop.appearance";
constexpr auto reducedMotion = "reduced-motion";
constexpr auto interfaceSettings = "org.gnome.desktop.interface";
constexpr auto enableAnimations = "enable-animations";

constexpr auto portal = "org.freedesktop.portal.Desktop";
constexpr auto portalPath = "/org/freedesktop/portal/desktop";
constexpr auto portalSettings = "org.freedesktop.portal.Settings";

using Settings = QMap<QString, QVariantMap>;

bool shouldReduce(const Settings& settings) {
    const QVariant reduced =
        settings.value(QString::fromLatin1(appearance)).value(QString::fromLatin1(reducedMotion));
    if (reduced.isValid()) {
        return reduced.toUInt() == 1;
    }
    const QVariant animations = settings.value(QString::fromLatin1(interfaceSettings))
                                    .value(QString::fromLatin1(enableAnimations));
    return animations.isValid() && !animations.toBool();
}

} // namespace

PortalMotionPreference::PortalMotionPreference(Clock& clock, SessionBus::Share shareBus)
    : clock_(clock), shareBus_(std::move(shareBus)) {
    readTimer_.setSingleShot(true);
    readTimer_.callOnTimeout(&callbackContext_, [this] { read(); });
}

bool PortalMotionPreference::shouldReduceMotion() {
    start();
    return isReduced_;
}

std::unique_ptr<Subscription> PortalMotionPreference::onChange(std::function<void()> changed) {
    start();
    return changed_.add(std::move(changed));
}

void PortalMotionPreference::start() {
    if (std::exchange(isStarted_, true)) {
        return;
    }
    SessionBus::shareOrConnect(
        shareBus_, &callbackContext_, clock_, [this](std::unique_ptr<SessionBus> bus) {
            bus_ = std::move(bus);
            if (bus_) {
                listen();
                read();
            }
        });
}

void PortalMotionPreference::listen() {
    for (const char* settingsGroup : {appearance, interfaceSettings}) {
        // Accept the signal from any sender: filtering by sender would make Qt block on the bus.
        // The signal's content is not trusted; it only triggers a read.
        bus_->connection().connect(
            QString(),
            QString::fromLatin1(portalPath),
            QString::fromLatin1(portalSettings),
            QStringLiteral("SettingChanged"),
            {QString::fromLatin1(settingsGroup)},
            QString(),
            &readTimer_,
            SLOT(start()));
    }
}

void PortalMotionPreference::read() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(portal),
        QString::fromLatin1(portalPath),
        QString::fromLatin1(portalSettings),
        QStringLiteral("ReadAll"));
    // Start the portal only once: later it may be ending with the session.
    call.setAutoStartService(std::exchange(mayStartPortal_, false));
    call << QStringList{QString::fromLatin1(appearance), QString::fromLatin1(interfaceSettings)};
    SessionBus::onReply(
        bus_->connection().asyncCall(call),
        &callbackContext_,
        [this](const QDBusPendingCall& finished) { take(finished.reply()); });
}

void PortalMotionPreference::take(const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage ||
        reply.signature() != QLatin1String("a{sa{sv}}")) {
        return;
    }
    const bool isReduced = shouldReduce(qdbus_cast<Settings>(reply.arguments().constFirst()));
    if (isReduced != isReduced_) {
        isReduced_ = isReduced;
        changed_.call();
    }
}

} // namespace orvel
