// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/InstanceName.h"

#include "platform/linux/SessionBus.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantMap>

#include <optional>
#include <utility>

namespace orvel {

namespace {

constexpr auto applicationInterface = "org.freedesktop.Application";
constexpr auto activate = "Activate";
constexpr auto tokenVariable = "XDG_ACTIVATION_TOKEN";
constexpr auto tokenKey = "activation-token";
constexpr auto startupVariable = "DESKTOP_STARTUP_ID";
constexpr auto startupKey = "desktop-startup-id";
constexpr auto busTimeout = static_cast<int>(InstanceName::longestWait.count());

QDBusMessage busMethod(const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"),
        QString::fromLatin1(method));
}

QVariantMap platformData() {
    QVariantMap data;
    for (const auto& [variable, key] :
         {std::pair(tokenVariable, tokenKey), std::pair(startupVariable, startupKey)}) {
        if (const QString value = qEnvironmentVariable(variable); !value.isEmpty()) {
            data.insert(QString::fromLatin1(key), value);
        }
    }
    return data;
}

/// Who has the name; nothing when nobody has it any more, and a silent bus when that is unknown.
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

/// What others on the bus can reach. There are no documents and no actions: whatever is asked for,
/// the user wants to see the application.
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
        const auto data = qdbus_cast<QVariantMap>(message.arguments().constLast());
        const QByteArray token = data.value(QString::fromLatin1(tokenKey)).toString().toUtf8();
        if (!token.isEmpty()) {
            // Where Qt's windows look for it when they are shown next.
            qputenv(tokenVariable, token);
        }
        const bool isSent = connection.send(message.createReply());
        activated_();
        return isSent;
    }

private:
    std::function<void()> activated_;
};

InstanceName::InstanceName(std::string name, std::function<void()> activated)
    : name_(std::move(name)), application_(std::make_unique<Application>(std::move(activated))) {}

InstanceName::~InstanceName() = default;

InstanceName::Outcome InstanceName::take() {
    if (!bus_) {
        bus_ = SessionBus::await(longestWait);
    }
    if (!bus_) {
        return NoBus();
    }
    // Before the name: whoever finds that finds the object, too.
    bus_->connection().registerVirtualObject(path(), application_.get());
    const QString name = QString::fromStdString(name_);
    QDBusMessage request = busMethod("RequestName");
    // Not to be replaced, not to replace, and not to queue up.
    constexpr quint32 flags = 0x4U;
    request << name << flags;
    // The other copy may end between the two questions; but not time and again.
    for (int attempt = 0; attempt < 10; ++attempt) {
        constexpr quint32 exists = 3;
        const QDBusReply<quint32> reply =
            bus_->connection().call(request, QDBus::Block, busTimeout);
        if (!reply.isValid()) {
            return NoBus();
        }
        if (reply.value() != exists) {
            return Own();
        }
        if (const auto owner = ownerOf(name, bus_->connection())) {
            return *owner;
        }
    }
    return NoBus();
}

void InstanceName::activateOwner() {
    if (!bus_) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromStdString(name_),
        path(),
        QString::fromLatin1(applicationInterface),
        QString::fromLatin1(activate));
    call.setAutoStartService(false);
    call << platformData();
    bus_->connection().call(call, QDBus::Block, busTimeout);
}

QString InstanceName::path() const {
    // As the names of applications become paths.
    QString path = u'/' + QString::fromStdString(name_);
    return path.replace(u'.', u'/').replace(u'-', u'_');
}

} // namespace orvel
