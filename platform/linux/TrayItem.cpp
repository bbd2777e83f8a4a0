// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/TrayItem.h"

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
/// One after the other, each for a tray of its own.
constexpr int mostIcons = 100;

/// Each icon is on a connection of its own, which Qt numbers.
QDBusConnection connectionOfItem() {
    const QString name =
        QStringLiteral("%1-%2-").arg(QLatin1String(itemInterface)).arg(qApp->applicationPid());
    for (int number = 1; number < mostIcons; ++number) {
        QDBusConnection connection(name + QString::number(number));
        if (connection.objectRegisteredAt(QLatin1String(itemPath)) != nullptr) {
            return connection;
        }
    }
    return QDBusConnection(QString());
}

/// By which Qt puts the icon on the bus.
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

/// Answers in Qt's place when the icon is asked for its properties: with the same, but the title.
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
    Get(const QString& /*interface*/, const QString& name, const QDBusMessage& call) {
        const QVariant value = valueOf(name.toLatin1().constData());
        if (!value.isValid()) {
            call.setDelayedReply(true);
            connection_.send(call.createErrorReply(
                QDBusError::UnknownProperty, QStringLiteral("No such property: ") + name));
        }
        return QDBusVariant(value);
    }

    QVariantMap GetAll(const QString& /*interface*/) { // NOLINT: the bus's name
        QVariantMap values;
        const QMetaObject* type = adaptor_->metaObject();
        for (int index = type->propertyOffset(); index < type->propertyCount(); ++index) {
            const char* name = type->property(index).name();
            values.insert(QLatin1String(name), valueOf(name));
        }
        return values;
    }

private:
    [[nodiscard]] QVariant valueOf(const char* name) const {
        return qstrcmp(name, "Title") == 0 ? QVariant(title_) : adaptor_->property(name);
    }

    QDBusConnection connection_;
    QObject* adaptor_;
    QString title_;
};

void TrayItem::setTitle(const std::string& title) {
    if (!properties_) {
        const QDBusConnection connection = connectionOfItem();
        QObject* item = connection.objectRegisteredAt(QLatin1String(itemPath));
        QObject* adaptor = item != nullptr ? adaptorOf(*item) : nullptr;
        if (adaptor == nullptr) {
            return;
        }
        properties_ = new TrayItemProperties(connection, item, adaptor);
    }
    properties_->setTitle(QString::fromStdString(title));
}

} // namespace orvel

#include "TrayItem.moc"
