// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/TrayItem.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QMetaClassInfo>
#include <QMetaProperty>
#include <QVariantMap>

#include <utility>

namespace orvel {

namespace {

constexpr auto itemInterface = "org.kde.StatusNotifierItem";
constexpr auto itemPath = "/StatusNotifierItem";
/// How many connection numbers to try; Qt uses a new one for each icon.
constexpr int maximumAttempts = 100;

/// Qt gives each icon its own numbered connection.
QDBusConnection connectionOfItem(int number) {
    return QDBusConnection(QStringLiteral("%1-%2-%3")
                               .arg(QLatin1String(itemInterface))
                               .arg(qApp->applicationPid())
                               .arg(number));
}

/// Qt's D-Bus adaptor of the icon.
QObject* adaptorOf(const QObject& item) {
    for (QObject* adaptor : item.findChildren<QDBusAbstractAdaptor*>()) {
        const QMetaObject* type = adaptor->metaObject();
        const int index = type->indexOfClassInfo("D-Bus Interface");
        if (index >= 0 && qstrcmp(type->classInfo(index).value(), itemInterface) == 0) {
            return adaptor;
        }
    }
    return nullptr;
}

} // namespace

/// Answers property calls instead of Qt, with the same values except the title.
class TrayItemProperties final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")

public:
    TrayItemProperties(QDBusConnection connection, QObject* item, QObject* adaptor)
        : QDBusAbstractAdaptor(item), connection_(std::move(connection)), adaptor_(adaptor) {}

    void setTitle(const QString& title) {
        if (title_ != title) {
            title_ = title;
            QMetaObject::invokeMethod(adaptor_, "NewTitle");
        }
    }

public Q_SLOTS:
    QDBusVariant // NOLINTNEXTLINE: the bus's name
    Get(const QString& interface, const QString& name, const QDBusMessage& call) {
        if (!isOurs(interface, call)) {
            return {};
        }
        const QByteArray key = name.toLatin1();
        const QMetaObject* type = adaptor_->metaObject();
        if (type->indexOfProperty(key.constData()) < type->propertyOffset()) {
            refuse(call, QDBusError::UnknownProperty, QStringLiteral("No such property: ") + name);
            return {};
        }
        return QDBusVariant(valueOf(key.constData()));
    }

    QVariantMap // NOLINTNEXTLINE: the bus's name
    GetAll(const QString& interface, const QDBusMessage& call) {
        QVariantMap values;
        if (!isOurs(interface, call)) {
            return values;
        }
        const QMetaObject* type = adaptor_->metaObject();
        for (int index = type->propertyOffset(); index < type->propertyCount(); ++index) {
            const char* name = type->property(index).name();
            values.insert(QLatin1String(name), valueOf(name));
        }
        return values;
    }

private:
    /// Sends an error reply if it is not.
    [[nodiscard]] bool isOurs(const QString& interface, const QDBusMessage& call) const {
        // D-Bus callers may omit the interface.
        if (interface.isEmpty() || interface == QLatin1String(itemInterface)) {
            return true;
        }
        refuse(
            call,
            QDBusError::UnknownInterface,
            QStringLiteral("No properties of this interface: ") + interface);
        return false;
    }

    void
    refuse(const QDBusMessage& call, QDBusError::ErrorType reason, const QString& message) const {
        call.setDelayedReply(true);
        connection_.send(call.createErrorReply(reason, message));
    }

    [[nodiscard]] QVariant valueOf(const char* name) const {
        return qstrcmp(name, "Title") == 0 ? QVariant(title_) : adaptor_->property(name);
    }

    QDBusConnection connection_;
    QObject* adaptor_;
    QString title_;
};

void TrayItem::setTitle(const std::string& title) {
    if (!properties_) {
        findItem();
    }
    if (properties_) {
        properties_->setTitle(QString::fromStdString(title));
    }
}

void TrayItem::findItem() {
    for (int number = number_; number < number_ + maximumAttempts; ++number) {
        const QDBusConnection connection = connectionOfItem(number);
        QObject* item = connection.objectRegisteredAt(QLatin1String(itemPath));
        QObject* adaptor = item != nullptr ? adaptorOf(*item) : nullptr;
        if (adaptor != nullptr) {
            properties_ = new TrayItemProperties(connection, item, adaptor);
            number_ = number;
            return;
        }
    }
}

} // namespace orvel

#include "TrayItem.moc"
