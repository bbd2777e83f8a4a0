// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/linux/keychain/KeyringDesktop.h"

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusError>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace orvel::test {

namespace {

/// A secret in its D-Bus form, without encryption.
struct PlainSecret {
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType = QStringLiteral("text/plain");

    friend QDBusArgument& operator<<(QDBusArgument& argument, const PlainSecret& secret) {
        argument.beginStructure();
        argument << secret.session << secret.parameters << secret.value << secret.contentType;
        argument.endStructure();
        return argument;
    }
    friend const QDBusArgument& operator>>(const QDBusArgument& argument, PlainSecret& secret) {
        argument.beginStructure();
        argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
        argument.endStructure();
        return argument;
    }
};

using Attributes = QMap<QString, QString>;
using Paths = QList<QDBusObjectPath>;
using Secrets = QMap<QDBusObjectPath, PlainSecret>;

const auto serviceInterface = QStringLiteral("org.freedesktop.Secret.Service");
const auto prompterName = QStringLiteral("org.gnome.keyring.SystemPrompter");
const auto prompterPath = QStringLiteral("/org/gnome/keyring/Prompter");
const QDBusObjectPath collection(QStringLiteral("/org/freedesktop/secrets/collection/login"));

QDBusConnection privateBus() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing writes the environment meanwhile
    if (std::getenv("PRIVATE_SESSION") == nullptr) {
        throw std::runtime_error("Run this with tests/support/private-session --keyring.");
    }
    return QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("keyring desktop"));
}

} // namespace

KeyringDesktop::KeyringDesktop() : bus_(privateBus()) {
    qDBusRegisterMetaType<Attributes>();
    qDBusRegisterMetaType<PlainSecret>();
    qDBusRegisterMetaType<Secrets>();
    bus_.registerVirtualObject(prompterPath, &prompter_);
    if (!bus_.registerService(prompterName)) {
        throw std::runtime_error("There is another program for the dialogs.");
    }
    unlock();
}

KeyringDesktop::~KeyringDesktop() {
    dismissDialogs();
    unlock();
    bus_.unregisterService(prompterName);
    bus_.unregisterObject(prompterPath);
}

void KeyringDesktop::lock() {
    call(serviceInterface, QStringLiteral("Lock"), {QVariant::fromValue(Paths{collection})});
}

void KeyringDesktop::unlock() {
    PlainSecret password;
    password.session = openSession();
    password.value = "password";
    call(
        QStringLiteral("org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface"),
        QStringLiteral("UnlockWithMasterPassword"),
        {QVariant::fromValue(collection), QVariant::fromValue(password)});
}

void KeyringDesktop::dismissDialogs() {
    for (const QDBusMessage& dialog : std::exchange(dialogs_, {})) {
        bus_.send(dialog.createErrorReply(QDBusError::Failed, QStringLiteral("Dismissed")));
    }
}

std::vector<std::string>
KeyringDesktop::values(const std::string& service, const std::string& account) {
    const QDBusMessage found = call(
        serviceInterface,
        QStringLiteral("SearchItems"),
        {QVariant::fromValue(Attributes{
            {QStringLiteral("server"), QString::fromStdString(service)},
            {QStringLiteral("user"), QString::fromStdString(account)}})});
    const QDBusMessage secrets = call(
        serviceInterface,
        QStringLiteral("GetSecrets"),
        {QVariant::fromValue(qdbus_cast<Paths>(found.arguments().at(0))),
         QVariant::fromValue(openSession())});
    std::vector<std::string> values;
    for (const PlainSecret& secret : qdbus_cast<Secrets>(secrets.arguments().at(0))) {
        values.push_back(secret.value.toStdString());
    }
    return values;
}

void KeyringDesktop::add(
    const std::string& service, const std::string& account, const std::string& value) {
    PlainSecret secret;
    secret.session = openSession();
    secret.value = QByteArray::fromStdString(value);
    const Attributes attributes{
        {QStringLiteral("xdg:schema"), QStringLiteral("org.qt.keychain")},
        {QStringLiteral("server"), QString::fromStdString(service)},
        {QStringLiteral("user"), QString::fromStdString(account)},
        {QStringLiteral("type"), QStringLiteral("plaintext")}};
    call(
        QStringLiteral("org.freedesktop.Secret.Collection"),
        QStringLiteral("CreateItem"),
        {QVariantMap{
             {QStringLiteral("org.freedesktop.Secret.Item.Attributes"),
              QVariant::fromValue(attributes)}},
         QVariant::fromValue(secret),
         true},
        collection.path());
}

bool KeyringDesktop::Prompter::handleMessage(const QDBusMessage& message, const QDBusConnection&) {
    if (message.member() != QStringLiteral("BeginPrompting")) {
        return false;
    }
    message.setDelayedReply(true);
    desktop_.dialogs_.push_back(message);
    return true;
}

QDBusObjectPath KeyringDesktop::openSession() {
    const QDBusMessage opened = call(
        serviceInterface,
        QStringLiteral("OpenSession"),
        {QStringLiteral("plain"), QVariant::fromValue(QDBusVariant(QString()))});
    return opened.arguments().at(1).value<QDBusObjectPath>();
}

QDBusMessage KeyringDesktop::call(
    const QString& interface,
    const QString& method,
    const QVariantList& arguments,
    const QString& path) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.secrets"), path, interface, method);
    message.setArguments(arguments);
    QDBusMessage reply = bus_.call(message);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        throw std::runtime_error(reply.errorMessage().toStdString());
    }
    return reply;
}

} // namespace orvel::test
