// SPDX-License-Identifier: Apache-2.0
//
// The desktop's handler for URLs of the agent's scheme: passes the URL to the waiting agent. Never
// prints the URL, which may contain a sign-in code.
#include "platform/linux/signin/SignInBus.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QMetaType>
#include <QString>
#include <QStringDecoder>

#include <cstring>
#include <iostream>

namespace {

constexpr auto usage = "usage: orvel-agent-callback URL\n"
                       "Hands the URL that ends a sign-in over from the browser to Orvel Agent.\n";

constexpr int milliseconds = 5000;

int fail(const char* sentence) {
    std::cerr << sentence << '\n';
    return 1;
}

/// Bus daemons use different error names.
bool hasNoReceiver(const QDBusMessage& reply) {
    const QString error = reply.errorName();
    return error == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner") ||
           error == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown");
}

int handOver(const QString& url) {
    // Creates Qt's type registry before the bus thread, so that the registry is destroyed after it.
    qRegisterMetaType<QDBusObjectPath>();
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return fail("There is no session bus on which Orvel Agent could be reached.");
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(orvel::sign_in_bus::service),
        QString::fromLatin1(orvel::sign_in_bus::path),
        QString::fromLatin1(orvel::sign_in_bus::interface),
        QString::fromLatin1(orvel::sign_in_bus::method));
    call << url;
    call.setAutoStartService(false);
    const QDBusMessage reply = bus.call(call, QDBus::Block, milliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        return hasNoReceiver(reply) ? fail("No Orvel Agent is waiting for a sign-in.")
                                    : fail("Orvel Agent does not answer.");
    }
    if (!reply.arguments().value(0).toBool()) {
        return fail("Orvel Agent is not waiting for this sign-in.");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << usage;
        return 0;
    }
    if (argc != 2 || *argv[1] == '-' || *argv[1] == '\0') {
        std::cerr << usage;
        return 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString url = decoder(argv[1]);
    if (decoder.hasError()) {
        std::cerr << "The URL is no UTF-8.\n" << usage;
        return 2;
    }
    // Hide the arguments from Qt, which would interpret its own options.
    int programNameOnly = 1;
    const QCoreApplication application(programNameOnly, argv);
    return handOver(url);
}
