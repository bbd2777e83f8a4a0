// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/BrowserAuthenticationSession.h"

#include "platform/linux/signin/SignInBus.h"
#include "platform/linux/support/WebAddress.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDBusVirtualObject>
#include <QString>

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace orvel {

namespace {

/// The limit for ignored callbacks.
constexpr std::size_t maximumLoggedBytes = 64;

/// The part of a URL that may be logged: without query and fragment, and truncated.
std::string_view loggable(std::string_view url) {
    return url.substr(0, std::min(url.find_first_of("?#"), maximumLoggedBytes));
}

bool hasScheme(std::string_view url, std::string_view scheme) {
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                    : character;
    };
    return url.size() > scheme.size() && url[scheme.size()] == ':' &&
           std::ranges::equal(url.substr(0, scheme.size()), scheme, {}, lower, lower);
}

} // namespace

struct BrowserAuthenticationSession::Waiting {
    std::string url;
    std::string scheme;
    Screen screen;
    std::function<void(Outcome)> completion;
    /// Whether this attempt has taken the name. Before that, a lost name concerns an earlier
    /// attempt.
    bool hasName = false;
    /// Set when the browser is started.
    std::unique_ptr<OneTimeAddress> address;
    std::unique_ptr<Clock::Timer> timer;
};

/// The object on the bus, with its one method.
class BrowserAuthenticationSession::Receiver final : public QDBusVirtualObject {
public:
    explicit Receiver(BrowserAuthenticationSession& session) : session_(session) {}

    [[nodiscard]] QString introspect(const QString&) const override {
        return QStringLiteral(R"(<interface name="%1"><method name="%2">)"
                              R"(<arg name="url" type="s" direction="in"/>)"
                              R"(<arg name="taken" type="b" direction="out"/>)"
                              R"(</method></interface>)")
            .arg(
                QString::fromLatin1(sign_in_bus::interface),
                QString::fromLatin1(sign_in_bus::method));
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != QLatin1String(sign_in_bus::interface) ||
            message.member() != QLatin1String(sign_in_bus::method) ||
            message.signature() != QLatin1String("s")) {
            return false;
        }
        const bool isTaken = session_.take(message.arguments().at(0).toString().toStdString());
        return connection.send(message.createReply(isTaken));
    }

private:
    BrowserAuthenticationSession& session_;
};

class BrowserAuthenticationSession::BrowserAttempt final : public Attempt {
public:
    BrowserAttempt(BrowserAuthenticationSession& session, std::weak_ptr<Waiting> waiting)
        : session_(session), waiting_(std::move(waiting)) {}

    void cancel() override {
        if (!waiting_.expired()) {
            session_.finish(Cancelled());
        }
    }

private:
    BrowserAuthenticationSession& session_;
    std::weak_ptr<Waiting> waiting_;
};

BrowserAuthenticationSession::BrowserAuthenticationSession(
    Workspace& workspace, Clock& clock, LogStore& logStore, Prepare prepare)
    : workspace_(workspace),
      clock_(clock),
      logStore_(logStore),
      prepare_(std::move(prepare)),
      receiver_(std::make_unique<Receiver>(*this)) {}

BrowserAuthenticationSession::~BrowserAuthenticationSession() = default;

std::unique_ptr<WebAuthenticationSession::Attempt> BrowserAuthenticationSession::start(
    std::string url,
    std::string callbackScheme,
    Screen screen,
    std::function<void(Outcome)> completion) {
    finish(Cancelled());
    waiting_ = std::make_shared<Waiting>();
    waiting_->url = std::move(url);
    waiting_->scheme = std::move(callbackScheme);
    waiting_->screen = std::move(screen);
    waiting_->completion = std::move(completion);
    waiting_->timer = clock_.schedule(longestWait, [this] { finish(NoResponse()); });
    auto attempt = std::make_unique<BrowserAttempt>(*this, waiting_);
    if (bus_ && bus_->isConnected()) {
        requestName();
    } else {
        connect();
    }
    return attempt;
}

void BrowserAuthenticationSession::connect() {
    if (std::exchange(isConnecting_, true)) {
        return;
    }
    // Reset now: destroying the connection while connecting would block.
    bus_.reset();
    SessionBus::connect(&callbackContext_, clock_, [this](std::unique_ptr<SessionBus> bus) {
        isConnecting_ = false;
        bus_ = std::move(bus);
        if (bus_) {
            listen();
        }
        if (waiting_ && bus_) {
            requestName();
        } else if (waiting_) {
            fail("sign-in needs a session bus, and there is none");
        }
    });
}

void BrowserAuthenticationSession::listen() {
    bus_->connection().registerVirtualObject(
        QString::fromLatin1(sign_in_bus::path), receiver_.get());
    QObject::connect(
        bus_->connection().interface(),
        &QDBusConnectionInterface::serviceUnregistered,
        &callbackContext_,
        [this](const QString& service) {
            if (service == QLatin1String(sign_in_bus::service) && waiting_ && waiting_->hasName) {
                checkName();
            }
        });
    bus_->onLoss([this] {
        // Without the name, the failing request for it ends the attempt.
        if (waiting_ && waiting_->hasName) {
            logStore_.write(LogLevel::Error, "auth", "the session bus is gone");
            finish(NoResponse());
        }
    });
}

void BrowserAuthenticationSession::requestName() {
    // Replace the owner, allow later replacement, and do not queue.
    constexpr quint32 flags = 0x2U | 0x1U | 0x4U;
    constexpr quint32 isOwner = 1;
    constexpr quint32 wasOwner = 4;
    QDBusMessage request = SessionBus::daemonCall("RequestName");
    request << QString::fromLatin1(sign_in_bus::service) << flags;
    SessionBus::onReply(
        bus_->connection().asyncCall(request),
        &callbackContext_,
        [this, attempt = std::weak_ptr(waiting_)](const QDBusPendingCall& finished) {
            if (attempt.expired()) {
                return;
            }
            const QDBusPendingReply<quint32> reply = finished;
            if (reply.isError() || (reply.value() != isOwner && reply.value() != wasOwner)) {
                fail("could not get the sign-in's name on the session bus");
                return;
            }
            waiting_->hasName = true;
            prepare_([this, attempt] {
                if (!attempt.expired()) {
                    open();
                }
            });
        });
}

void BrowserAuthenticationSession::checkName() {
    SessionBus::onReply(
        bus_->connection().interface()->asyncCall(
            QStringLiteral("GetNameOwner"), QString::fromLatin1(sign_in_bus::service)),
        &callbackContext_,
        [this, attempt = std::weak_ptr(waiting_)](const QDBusPendingCall& finished) {
            const QDBusPendingReply<QString> owner = finished;
            if (!attempt.expired() &&
                (owner.isError() || owner.value() != bus_->connection().baseService())) {
                finish(Cancelled());
            }
        });
}

void BrowserAuthenticationSession::open() {
    if (!isHttpsURL(waiting_->url)) {
        fail("the address of the sign-in page is not a valid https one");
        return;
    }
    const std::weak_ptr attempt = waiting_;
    const auto usedTwice = [this, attempt] {
        if (!attempt.expired()) {
            logStore_.write(LogLevel::Error, "auth", "the sign-in page was opened twice");
            finish(Failed{
                "The sign-in was ended, because its page was opened twice. Please try again."});
        }
    };
    try {
        waiting_->address =
            std::make_unique<OneTimeAddress>(waiting_->url, clock_, logStore_, usedTwice);
    } catch (const tavrin::PlatformError& error) {
        fail(error.what());
        return;
    }
    workspace_.openURL(
        waiting_->address->url(),
        [this, attempt](const std::optional<tavrin::PlatformError>& error) {
            if (error && !attempt.expired()) {
                fail(error->what());
            }
        });
}

void BrowserAuthenticationSession::fail(std::string_view reason) {
    logStore_.write(LogLevel::Error, "auth", reason);
    finish(NotStarted());
}

void BrowserAuthenticationSession::finish(Outcome outcome) {
    if (const auto attempt = std::exchange(waiting_, nullptr)) {
        callbackContext_.post([completion = std::move(attempt->completion),
                               outcome = std::move(outcome)] { completion(outcome); });
    }
}

bool BrowserAuthenticationSession::take(const std::string& callback) {
    const auto ignore = [this, &callback](std::string_view reason) {
        logStore_.write(
            LogLevel::Error,
            "auth",
            fmt::format("ignored a callback, {}: {}", reason, loggable(callback)));
        return false;
    };
    if (callback.size() > maximumCallbackBytes) {
        return ignore("which is too long");
    }
    if (!waiting_) {
        return ignore("which no sign-in waits for");
    }
    if (!waiting_->address || !waiting_->address->isUsed()) {
        return ignore("which came before the sign-in page");
    }
    if (!hasScheme(callback, waiting_->scheme)) {
        return ignore("which has another scheme");
    }
    std::optional<Outcome> outcome = waiting_->screen(callback);
    if (!outcome) {
        return ignore("which is malformed");
    }
    finish(*std::move(outcome));
    return true;
}

} // namespace orvel
