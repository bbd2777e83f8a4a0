// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/signin/SignInBus.h"
#include "tests/support/WaitUntil.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QString>
#include <QVariant>

#include <stdexcept>
#include <string>

namespace orvel::test {

/// Calls the process with the pending sign-in over the session bus, as another program would.
inline QDBusMessage callSignIn(
    const QVariantList& arguments,
    const char* method = sign_in_bus::method,
    const char* interface = sign_in_bus::interface) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(sign_in_bus::service),
        QString::fromLatin1(sign_in_bus::path),
        QString::fromLatin1(interface),
        QString::fromLatin1(method));
    call.setArguments(arguments);
    const QDBusConnection bus = QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("another program"));
    const QDBusPendingCall pending = bus.asyncCall(call);
    if (!waitUntil([&] { return pending.isFinished(); })) {
        throw std::runtime_error("The session bus did not answer.");
    }
    return pending.reply();
}

/// Passes the URL like the callback program does; returns whether it was accepted.
inline bool callBack(const std::string& url) {
    return callSignIn({QString::fromStdString(url)}).arguments().value(0).toBool();
}

} // namespace orvel::test
