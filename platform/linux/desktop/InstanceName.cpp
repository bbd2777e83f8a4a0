// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/InstanceName.h"

#include "platform/linux/support/SessionBus.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVirtualObject>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <optional>
#include <utility>

namespace orvel {

namespace {

constexpr auto applicationInterface = "org.freedesktop.Application";
constexpr auto activate = "Activate";
constexpr auto busTimeout = static_cast<int>(InstanceName::longestWait.count());

QDBusMessage busMethod(const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"),
        QString::fromLatin1(method));
}

/// The name's owner; no value when it has none, and `NoBus` when the bus does not answer.
std::optional<InstanceName::Outcome>
ownerOf(const QString& name, const QDBusConnection& connection) {
    QDBusMessage question = busMethod("GetConnectionUnixProcessID");
    question << name;
    const QDBusReply<quint32> pid = connection.call(question, QDBus::Block, busTimeout);
    if (pid.isValid()) {
        return InstanceName::OwnedBy{pid.value()};
    }
    if (pid.error().name() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        return std::nullopt;
    }
    return InstanceName::NoBus();
}

} // namespace

/// The flags of RequestName: wait in the queue, or do not queue. The owner is never replaced.
enum class InstanceName::QueuePolicy : std::uint32_t { Wait = 0, DoNotQueue = 4 };

/// The object on the bus. There are no documents and no actions, so every call activates the
/// application. Ignores the caller's activation token: Qt reads tokens only from the environment,
/// which cannot be changed safely while other threads read it.
class InstanceName::Application final : public QDBusVirtualObject {
public:
    explicit Application(std::function<void()> activated) : activated_(std::move(activated)) {}

    [[nodiscard]] QString introspect(const QString&) const override {
        return QStringLiteral(
            R"(<interface name="org.freedesktop.Application">)"
            R"(<method name="Activate"><arg type="a{sv}" name="platform_data" direction="in"/>)"
            R"(</method><method name="Open"><arg type="as" name="uris" direction="in"/>)"
            R"(<arg type="a{sv}" name="platform_data" direction="in"/></method>)"
            R"(<method name="ActivateAction"><arg type="s" name="action_name" direction="in"/>)"
            R"(<arg type="av" name="parameter" direction="in"/>)"
            R"(<arg type="a{sv}" name="platform_data" direction="in"/></method></interface>)");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const QString call = message.member() + u'(' + message.signature() + u')';
        if (message.interface() != QLatin1String(applicationInterface) ||
            (call != QLatin1String("Activate(a{sv})") && call != QLatin1String("Open(asa{sv})") &&
             call != QLatin1String("ActivateAction(sava{sv})"))) {
            return false;
        }
        const bool isSent = connection.send(message.createReply());
        activated_();
        return isSent;
    }

private:
    std::function<void()> activated_;
};

InstanceName::InstanceName(std::string name, std::function<void()> activated)
    : name_(std::move(name)),
      application_(std::make_unique<Application>(std::move(activated))),
      callbackContext_(std::make_unique<QObject>()) {}

InstanceName::~InstanceName() {
    if (bus_) {
        // Others may still use the connection.
        bus_->connection().unregisterObject(path());
        QDBusMessage release = busMethod("ReleaseName");
        release << QString::fromStdString(name_);
        bus_->connection().send(release);
    }
}

InstanceName::Outcome InstanceName::take() {
    if (!bus_) {
        bus_ = SessionBus::await(longestWait, callbackContext_.get(), [this](auto bus) {
            bus_ = std::move(bus);
            queueForName();
        });
    }
    if (!bus_) {
        return NoBus();
    }
    // Register the object before requesting the name, so that the name's owner always has the
    // object.
    bus_->connection().registerVirtualObject(path(), application_.get());
    const QDBusMessage request = requestName(QueuePolicy::DoNotQueue);
    // Retry, because the other copy may end between the two calls.
    for (int attempt = 0; attempt < 10; ++attempt) {
        constexpr quint32 exists = 3;
        const QDBusReply<quint32> reply =
            bus_->connection().call(request, QDBus::Block, busTimeout);
        if (!reply.isValid()) {
            queueForName();
            return NoBus();
        }
        if (reply.value() != exists) {
            return Own();
        }
        if (const auto owner = ownerOf(QString::fromStdString(name_), bus_->connection())) {
            return *owner;
        }
    }
    return NoBus();
}

QDBusMessage InstanceName::requestName(QueuePolicy policy) const {
    QDBusMessage request = busMethod("RequestName");
    request << QString::fromStdString(name_) << static_cast<quint32>(policy);
    return request;
}

void InstanceName::queueForName() {
    bus_->connection().registerVirtualObject(path(), application_.get());
    // The agent is already running, so wait for the name if another process has it.
    bus_->connection().send(requestName(QueuePolicy::Wait));
}

std::unique_ptr<SessionBus> InstanceName::shareBus() const {
    return bus_ && bus_->isConnected() ? bus_->share() : nullptr;
}

void InstanceName::activateOwner() {
    if (!bus_) {
        bus_ = SessionBus::await(longestWait, callbackContext_.get(), [](auto) {});
    }
    if (!bus_) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromStdString(name_),
        path(),
        QString::fromLatin1(applicationInterface),
        QString::fromLatin1(activate));
    call.setAutoStartService(false);
    call << QVariantMap();
    bus_->connection().call(call, QDBus::Block, busTimeout);
}

QString InstanceName::path() const {
    // The path that org.freedesktop.Application requires for an application's name.
    QString path = u'/' + QString::fromStdString(name_);
    return path.replace(u'.', u'/').replace(u'-', u'_');
}

} // namespace orvel
