// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/SessionInstanceRegistry.h"

#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantMap>

#include <unistd.h>

#include <chrono>
#include <utility>
#include <variant>

namespace orvel {

namespace {

constexpr auto applicationInterface = "org.freedesktop.Application";
/// The timeout of each call to the bus and to the other copy.
constexpr std::chrono::milliseconds longestWait{2'000};
constexpr auto busTimeout = static_cast<int>(longestWait.count());

/// The process that owns the name; 0 when none does, and no value when the bus does not answer.
std::optional<std::int64_t> ownerOf(const QString& name, const QDBusConnection& connection) {
    QDBusMessage question = SessionBus::daemonCall("GetConnectionUnixProcessID");
    question << name;
    const QDBusReply<quint32> pid = connection.call(question, QDBus::Block, busTimeout);
    if (pid.isValid()) {
        return pid.value();
    }
    if (pid.error().name() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        return 0;
    }
    return std::nullopt;
}

} // namespace

/// The flags of RequestName: wait in the queue, or do not queue. The owner is never replaced.
enum class SessionInstanceRegistry::QueuePolicy : std::uint32_t { Wait = 0, DoNotQueue = 4 };

/// The object on the bus. There are no documents and no actions, so every call activates the
/// application. Ignores the caller's activation token: Qt reads tokens only from the environment,
/// which cannot be changed safely while other threads read it.
class SessionInstanceRegistry::Application final : public QDBusVirtualObject {
public:
    explicit Application(const Subscribers& activated) : activated_(activated) {}

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
        activated_.call();
        return isSent;
    }

private:
    const Subscribers& activated_;
};

SessionInstanceRegistry::SessionInstanceRegistry()
    : application_(std::make_unique<Application>(activated_)) {}

SessionInstanceRegistry::~SessionInstanceRegistry() {
    if (bus_) {
        // Others may still use the connection.
        bus_->connection().unregisterObject(path());
        QDBusMessage release = SessionBus::daemonCall("ReleaseName");
        release << QString::fromStdString(name_);
        bus_->connection().send(release);
    }
}

std::optional<InstanceRegistry::RunningApplication>
SessionInstanceRegistry::runningCopy(const std::string& identifier) {
    name_ = identifier;
    // Take the lock before the name: other copies activate the name's owner, so it must be the copy
    // that keeps running.
    if (const auto folder = InstanceLock::defaultFolder()) {
        const InstanceLock::Outcome held = lock_.take(*folder, identifier);
        if (const auto* other = std::get_if<InstanceLock::HeldBy>(&held)) {
            return RunningApplication{other->processIdentifier};
        }
    }
    // Check the name even with the lock: another copy may use another lock folder, or none.
    return takeName();
}

std::optional<InstanceRegistry::RunningApplication> SessionInstanceRegistry::takeName() {
    if (!bus_) {
        bus_ = SessionBus::await(longestWait, &callbackContext_, [this](auto bus) {
            bus_ = std::move(bus);
            queueForName();
        });
    }
    if (!bus_) {
        return std::nullopt;
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
            return std::nullopt;
        }
        if (reply.value() != exists) {
            return std::nullopt;
        }
        const auto owner = ownerOf(request.arguments().constFirst().toString(), bus_->connection());
        if (!owner || *owner == getpid()) {
            return std::nullopt;
        }
        if (*owner != 0) {
            return RunningApplication{*owner};
        }
    }
    return std::nullopt;
}

QDBusMessage SessionInstanceRegistry::requestName(QueuePolicy policy) const {
    QDBusMessage request = SessionBus::daemonCall("RequestName");
    request << QString::fromStdString(name_) << static_cast<quint32>(policy);
    return request;
}

void SessionInstanceRegistry::queueForName() {
    bus_->connection().registerVirtualObject(path(), application_.get());
    // The agent is already running, so wait for the name if another process has it.
    bus_->connection().send(requestName(QueuePolicy::Wait));
}

void SessionInstanceRegistry::activateCopy(const RunningApplication&) {
    if (!bus_ && !name_.empty()) {
        bus_ = SessionBus::await(longestWait, &callbackContext_, [](auto) {});
    }
    if (!bus_) {
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromStdString(name_),
        path(),
        QString::fromLatin1(applicationInterface),
        QStringLiteral("Activate"));
    call.setAutoStartService(false);
    call << QVariantMap();
    bus_->connection().call(call, QDBus::Block, busTimeout);
}

std::unique_ptr<Subscription>
SessionInstanceRegistry::onActivation(std::function<void()> activated) {
    return activated_.add(std::move(activated));
}

std::unique_ptr<SessionBus> SessionInstanceRegistry::shareBus() const {
    return bus_ && bus_->isConnected() ? bus_->share() : nullptr;
}

QString SessionInstanceRegistry::path() const {
    // The path that org.freedesktop.Application requires for an application's name.
    QString path = u'/' + QString::fromStdString(name_);
    return path.replace(u'.', u'/').replace(u'-', u'_');
}

} // namespace orvel
