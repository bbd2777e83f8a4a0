// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel::test {

/// A service on the session bus, or on the bus with that address, until destroyed. Answers calls
/// from this thread's event loop.
class BusService final {
public:
    /// Answers a call of the object.
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;

    BusService(QString name, QString path, Answer answer, const std::string& address = "")
        : name_(std::move(name)),
          path_(std::move(path)),
          connection_(connect(address)),
          object_(std::move(answer)) {
        if (!connection_.registerVirtualObject(path_, &object_) ||
            !connection_.registerService(name_)) {
            throw std::runtime_error("The name could not be had on the session bus.");
        }
    }
    ~BusService() {
        connection_.unregisterService(name_);
        QDBusConnection::disconnectFromBus(connection_.name());
    }
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    /// The caller's process.
    [[nodiscard]] uint processOf(const QDBusMessage& call) const {
        return connection_.interface()->servicePid(call.service());
    }

    void signal(const QString& interface, const QString& name, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createSignal(path_, interface, name);
        message.setArguments(arguments);
        connection_.send(message);
    }

private:
    class Object final : public QDBusVirtualObject {
    public:
        explicit Object(Answer answer) : answer_(std::move(answer)) {}
        [[nodiscard]] QString introspect(const QString&) const override { return {}; }
        bool
        handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
            return connection.send(answer_(message));
        }

    private:
        Answer answer_;
    };

    static QDBusConnection connect(const std::string& address) {
        return address.empty()
                   ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, nextName())
                   : QDBusConnection::connectToBus(QString::fromStdString(address), nextName());
    }

    static QString nextName() {
        static int last = 0;
        return QStringLiteral("service %1").arg(++last);
    }

    QString name_;
    QString path_;
    QDBusConnection connection_;
    Object object_;
};

} // namespace orvel::test
