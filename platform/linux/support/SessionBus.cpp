// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/SessionBus.h"

#include "platform/linux/support/StartThread.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QTimer>

#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

namespace orvel {

namespace {

QString nextConnectionName() {
    static int last = 0;
    return QStringLiteral("orvel %1").arg(++last);
}

std::jthread& latestThread();

/// With a silent bus, the connecting thread and Qt's bus thread block until libdbus times out. The
/// process then exits without joining them and without destroying the remaining statics.
void awaitLatestThread(int status, void*) {
    constexpr std::chrono::seconds limit{1};
    const auto end = std::async(std::launch::async, [] { latestThread() = std::jthread(); });
    if (end.wait_for(limit) != std::future_status::ready) {
        std::fflush(nullptr);
        _exit(status);
    }
}

/// The latest connecting thread. Joined at exit before Qt's connection manager is destroyed,
/// because it is created after the manager.
std::jthread& latestThread() {
    static const bool isManagerCreated = !QDBusConnection(QStringLiteral("none")).isConnected();
    static std::jthread thread;
    static const int isAwaited = on_exit(awaitLatestThread, nullptr);
    static_cast<void>(isManagerCreated);
    static_cast<void>(isAwaited);
    return thread;
}

/// Qt's bus thread otherwise registers its types itself, which creates registries that are
/// destroyed at exit while the thread may still use them. Created before the thread, they are
/// destroyed after it. Asking for a signature registers all of the types.
void registerTypes() {
    QDBusMetaType::typeToSignature(QMetaType::fromType<QDBusObjectPath>());
}

/// Destroying it drops the thread's result.
struct Connecting final : QObject {
    using QObject::QObject;
    std::unique_ptr<Clock::Timer> timer;
};

std::unique_ptr<SessionBus> connectNamed(const QString& name) {
    auto bus = std::make_unique<SessionBus>(
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, name));
    return bus->isConnected() ? std::move(bus) : nullptr;
}

/// Passes a connection to a thread that waits for a limited time.
class Awaiting final {
public:
    /// Returns the connection if the wait is over.
    std::unique_ptr<SessionBus> offer(std::unique_ptr<SessionBus> bus) {
        const std::lock_guard lock(mutex_);
        if (isOver_) {
            return bus;
        }
        bus_ = std::move(bus);
        isOver_ = true;
        offered_.notify_one();
        return nullptr;
    }

    std::unique_ptr<SessionBus> take(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        offered_.wait_for(lock, limit, [this] { return isOver_; });
        isOver_ = true;
        return std::move(bus_);
    }

private:
    std::mutex mutex_;
    std::condition_variable offered_;
    bool isOver_ = false;
    std::unique_ptr<SessionBus> bus_;
};

} // namespace

void SessionBus::connect(QObject* context, Clock& clock, Connected connected) {
    registerTypes();
    auto* const connecting = new Connecting(context);
    connecting->timer = clock.schedule(longestConnecting, [connecting, connected] {
        const Connected end = connected;
        delete connecting;
        end(nullptr);
    });
    std::jthread& latest = latestThread();
    // Each thread joins the previous one at its end.
    latest = startThread(
        connecting,
        [name = nextConnectionName(), previous = std::move(latest)] { return connectNamed(name); },
        [connecting, connected](std::unique_ptr<SessionBus> bus) {
            connecting->timer.reset();
            connecting->deleteLater();
            connected(std::move(bus));
        });
}

std::unique_ptr<SessionBus>
SessionBus::await(std::chrono::milliseconds limit, QObject* context, Connected late) {
    registerTypes();
    const auto awaiting = std::make_shared<Awaiting>();
    std::jthread& latest = latestThread();
    latest = startThread(
        context,
        [name = nextConnectionName(), awaiting, previous = std::move(latest)] {
            return awaiting->offer(connectNamed(name));
        },
        [late = std::move(late)](std::unique_ptr<SessionBus> bus) {
            if (bus) {
                late(std::move(bus));
            }
        });
    return awaiting->take(limit);
}

void SessionBus::shareOrConnect(
    const Share& share, QObject* context, Clock& clock, const Connected& connected) {
    if (auto shared = share()) {
        connected(std::move(shared));
    } else {
        connect(context, clock, connected);
    }
}

QDBusMessage SessionBus::daemonCall(const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"),
        QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"),
        QString::fromLatin1(method));
}

void SessionBus::onReply(
    const QDBusPendingCall& call,
    QObject* context,
    std::function<void(const QDBusPendingCall&)> finished) {
    auto* const watcher = new QDBusPendingCallWatcher(call, context);
    QObject::connect(
        watcher,
        &QDBusPendingCallWatcher::finished,
        context,
        [watcher, finished = std::move(finished)] {
            watcher->deleteLater();
            finished(*watcher);
        });
}

SessionBus::SessionBus(QDBusConnection connection)
    : connection_(new QDBusConnection(std::move(connection)), [](QDBusConnection* last) {
          QDBusConnection::disconnectFromBus(last->name());
          delete last;
      }) {}

SessionBus::SessionBus(std::shared_ptr<QDBusConnection> connection)
    : connection_(std::move(connection)) {}

SessionBus::~SessionBus() = default;

std::unique_ptr<SessionBus> SessionBus::share() const {
    return std::unique_ptr<SessionBus>(new SessionBus(connection_));
}

void SessionBus::onLoss(std::function<void()> lost) {
    // Qt D-Bus needs a slot by name; a timer's `start()` is one.
    loss_ = std::make_unique<QTimer>();
    loss_->setSingleShot(true);
    QObject::connect(loss_.get(), &QTimer::timeout, loss_.get(), std::move(lost));
    connection_->connect(
        QString(),
        QStringLiteral("/org/freedesktop/DBus/Local"),
        QStringLiteral("org.freedesktop.DBus.Local"),
        QStringLiteral("Disconnected"),
        loss_.get(),
        SLOT(start()));
}

} // namespace orvel
