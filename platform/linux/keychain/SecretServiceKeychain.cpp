// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/keychain/SecretServiceKeychain.h"

#include "core/Secret.h"
#include "core/Text.h"
#include "platform/linux/support/StartThread.h"

#include <QAbstractEventDispatcher>
#include <QByteArray>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QString>
#include <qt6keychain/keychain.h>

#include <dlfcn.h>
#include <fmt/format.h>

#include <cstddef>
#include <string_view>

namespace orvel {

namespace {

/// The name under which QtKeychain loads it.
constexpr auto secretLibrary = "libsecret-1.so.0";

using Attributes = QMap<QString, QString>;
using Items = QList<QDBusObjectPath>;

tavrin::PlatformError changeError(int code, std::string_view reason) {
    return {"QKeychain", code, fmt::format("Could not change the keychain: {}", reason)};
}

std::optional<tavrin::PlatformError> errorOf(const QKeychain::Job& job) {
    if (job.error() == QKeychain::NoError || job.error() == QKeychain::EntryNotFound) {
        return std::nullopt;
    }
    return changeError(job.error(), job.errorString().toStdString());
}

/// Takes the job's value and wipes the job's copy, which would otherwise remain in freed memory.
tavrin::Secret takeValue(const QKeychain::ReadPasswordJob& job) {
    const QByteArray shared = job.binaryData();
    tavrin::Secret value(std::string(shared.constData(), static_cast<std::size_t>(shared.size())));
    // Wiped through a const_cast, because a non-const access would copy the array first.
    tavrin::wipe(const_cast<char*>(shared.constData()), static_cast<std::size_t>(shared.size()));
    return value;
}

} // namespace

SecretServiceKeychain::SecretServiceKeychain(Clock& clock, LogStore& logStore)
    : clock_(clock), logStore_(logStore) {}

void SecretServiceKeychain::read(
    std::string service, std::string account, ReadCompletion completion) {
    const Name name(std::move(service), std::move(account));
    if (const auto change = changes_.find(name); change != changes_.end()) {
        // Answer without the service: its value is older, and it may be waiting for the user.
        callbackContext_.post([value = change->second.value, completion = std::move(completion)] {
            completion({value, std::nullopt});
        });
        return;
    }
    enqueue([this, name, completion = std::move(completion)] {
        auto* const job = new QKeychain::ReadPasswordJob(QString::fromStdString(name.first));
        startJob(job, name, [this, job, completion](const QKeychain::Job&) {
            Reading reading;
            if (job->error() == QKeychain::NoError) {
                reading.value = takeValue(*job);
            } else if (job->error() != QKeychain::EntryNotFound) {
                const std::string reason = job->errorString().toStdString();
                logReadFailure(reason);
                reading.failure.emplace("QKeychain", static_cast<int>(job->error()), reason);
            }
            if (reading.value && !tavrin::isValidUTF8(reading.value->text())) {
                reading.value.reset();
                reading.failure.emplace("QKeychain", 0, "The item is not UTF-8.");
            }
            endOperation();
            completion(std::move(reading));
        });
    });
}

void SecretServiceKeychain::write(
    std::string service, std::string account, tavrin::Secret value, ChangeCompletion completion) {
    const Name name(std::move(service), std::move(account));
    const std::uint64_t number = hold(name, value);
    enqueue([this, name, number, value = std::move(value), completion = std::move(completion)] {
        auto* const job = new QKeychain::WritePasswordJob(QString::fromStdString(name.first));
        QString text = QString::fromStdString(value.text());
        // The job converts it to UTF-8 and keeps only that copy.
        job->setTextData(text);
        tavrin::wipe(text.data(), static_cast<std::size_t>(text.size()) * sizeof(QChar));
        startJob(job, name, [this, name, number, completion](const QKeychain::Job& ended) {
            endChange(name, number, ChangeKind::Write, errorOf(ended), completion);
        });
    });
}

void SecretServiceKeychain::remove(
    std::string service, std::string account, ChangeCompletion completion) {
    const Name name(std::move(service), std::move(account));
    const std::uint64_t number = hold(name, std::nullopt);
    enqueue([this, name, number, completion = std::move(completion)] {
        const auto end = [this, name, number, completion](const Failure& failure) {
            endChange(name, number, ChangeKind::Removal, failure, completion);
        };
        findLocked(name, [this, name, end](const Found& found) {
            if (const bool* isLocked = std::get_if<bool>(&found); isLocked && *isLocked) {
                unlock(name, [this, name, end] {
                    findLocked(name, [this, name, end](const Found& foundAgain) {
                        removeUnlocked(name, foundAgain, end);
                    });
                });
            } else {
                removeUnlocked(name, found, end);
            }
        });
    });
}

std::uint64_t SecretServiceKeychain::hold(const Name& name, std::optional<tavrin::Secret> value) {
    changes_[name] = Change{++lastChange_, std::move(value)};
    return lastChange_;
}

void SecretServiceKeychain::enqueue(std::function<void()> operation) {
    operations_.push_back(std::move(operation));
    if (operations_.size() == 1) {
        operations_.front()();
    }
}

void SecretServiceKeychain::endOperation() {
    operations_.pop_front();
    if (!operations_.empty()) {
        operations_.front()();
    }
}

void SecretServiceKeychain::endChange(
    const Name& name,
    std::uint64_t number,
    ChangeKind kind,
    const Failure& failure,
    const ChangeCompletion& completion) {
    if (failure) {
        logChangeFailure(kind, failure->what());
    } else if (const auto change = changes_.find(name);
               change != changes_.end() && change->second.number == number) {
        changes_.erase(change);
    }
    endOperation();
    completion(failure);
}

void SecretServiceKeychain::startJob(
    QKeychain::Job* job, const Name& name, std::function<void(const QKeychain::Job&)> end) {
    job->setInsecureFallback(false);
    job->setKey(QString::fromStdString(name.second));
    QObject::connect(
        job,
        &QKeychain::Job::finished,
        &callbackContext_,
        [end = std::move(end)](const QKeychain::Job* finished) { end(*finished); });
    if (QAbstractEventDispatcher::instance()->inherits("QEventDispatcherGlib")) {
        if (isLoaded_) {
            QMetaObject::invokeMethod(job, &QKeychain::Job::start, Qt::QueuedConnection);
            return;
        }
        // The first job of a process loads libsecret. Load it on a thread first, to keep the main
        // thread free. If that fails, the job reports it.
        loading_ = startThread(
            job,
            [previous = std::move(loading_)] { return dlopen(secretLibrary, RTLD_LAZY); },
            [this, context = QPointer(&callbackContext_), job](void*) {
                if (context) {
                    isLoaded_ = true;
                }
                job->start();
            });
        return;
    }
    // Without GLib the service's answer would never arrive.
    QMetaObject::invokeMethod(
        job,
        [job] {
            job->emitFinishedWithError(
                QKeychain::NoBackendAvailable, QStringLiteral("Qt runs without GLib"));
        },
        Qt::QueuedConnection);
}

void SecretServiceKeychain::findLocked(const Name& name, std::function<void(const Found&)> end) {
    if (bus_ && bus_->isConnected()) {
        search(name, std::move(end));
        return;
    }
    // Creates Qt's type registry before the bus thread, so that the registry is destroyed after it.
    qDBusRegisterMetaType<Attributes>();
    bus_.reset();
    SessionBus::connect(
        &callbackContext_,
        clock_,
        [this, name, end = std::move(end)](std::unique_ptr<SessionBus> bus) {
            bus_ = std::move(bus);
            if (bus_) {
                search(name, end);
            } else {
                // A call without a bus would never finish.
                end(changeError(QKeychain::NoBackendAvailable, "there is no session bus"));
            }
        });
}

void SecretServiceKeychain::search(const Name& name, std::function<void(const Found&)> end) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.secrets"),
        QStringLiteral("/org/freedesktop/secrets"),
        QStringLiteral("org.freedesktop.Secret.Service"),
        QStringLiteral("SearchItems"));
    call << QVariant::fromValue(Attributes{
        {QStringLiteral("xdg:schema"), QStringLiteral("org.qt.keychain")},
        {QStringLiteral("server"), QString::fromStdString(name.first)},
        {QStringLiteral("user"), QString::fromStdString(name.second)}});
    SessionBus::onReply(
        bus_->connection().asyncCall(call),
        &callbackContext_,
        [end = std::move(end)](const QDBusPendingCall& finished) {
            const QDBusPendingReply<Items, Items> unlockedAndLocked = finished;
            if (unlockedAndLocked.isError()) {
                const QDBusError error = unlockedAndLocked.error();
                end(changeError(QKeychain::NoBackendAvailable, error.message().toStdString()));
            } else {
                end(!unlockedAndLocked.argumentAt<1>().isEmpty());
            }
        });
}

void SecretServiceKeychain::unlock(const Name& name, std::function<void()> end) {
    auto* const job = new QKeychain::ReadPasswordJob(QString::fromStdString(name.first));
    startJob(job, name, [job, end = std::move(end)](const QKeychain::Job&) {
        static_cast<void>(takeValue(*job));
        end();
    });
}

void SecretServiceKeychain::removeUnlocked(
    const Name& name, const Found& found, std::function<void(const Failure&)> end) {
    if (const auto* failure = std::get_if<tavrin::PlatformError>(&found)) {
        end(*failure);
    } else if (std::get<bool>(found)) {
        end(changeError(QKeychain::AccessDenied, "it is locked"));
    } else {
        startJob(
            new QKeychain::DeletePasswordJob(QString::fromStdString(name.first)),
            name,
            [end = std::move(end)](const QKeychain::Job& ended) { end(errorOf(ended)); });
    }
}

void SecretServiceKeychain::logChangeFailure(ChangeKind kind, std::string_view reason) {
    const bool isRemoval = kind == ChangeKind::Removal;
    if (!std::exchange(isRemoval ? hasLoggedNotRemoved_ : hasLoggedMemoryOnly_, true)) {
        logStore_.write(
            LogLevel::Error,
            "keychain",
            fmt::format(
                "{}: {}",
                isRemoval ? "an item could not be removed from the keychain"
                          : "the session is kept in memory only",
                reason));
    }
}

void SecretServiceKeychain::logReadFailure(std::string_view reason) {
    if (!std::exchange(hasLoggedReadFailure_, true)) {
        logStore_.write(
            LogLevel::Error,
            "keychain",
            fmt::format("the keychain cannot be read: {}", tavrin::shownText(reason)));
    }
}

} // namespace orvel
