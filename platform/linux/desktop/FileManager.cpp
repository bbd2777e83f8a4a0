// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/FileManager.h"

#include "platform/linux/support/SessionBus.h"

#include <QByteArray>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <deque>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

/// For a file manager that is only now started.
constexpr std::chrono::milliseconds longestAnswer{10'000};

std::filesystem::path nearestExisting(std::filesystem::path path) {
    std::error_code error;
    while (path.has_relative_path() && !std::filesystem::exists(path, error)) {
        path = path.parent_path();
    }
    return path;
}

std::filesystem::path folderOf(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error) ? path : path.parent_path();
}

QString uriOf(const std::filesystem::path& path) {
    return QStringLiteral("file://") +
           QString::fromLatin1(QByteArray::fromStdString(path.string()).toPercentEncoding("/"));
}

} // namespace

struct FileManager::Showing {
    struct Call {
        const char* method;
        std::filesystem::path path;
    };

    /// What is still to be tried.
    std::deque<Call> calls;
    std::filesystem::path folder;
    Completion completion;
    /// Of its own: such calls are rare.
    std::unique_ptr<SessionBus> bus;
};

FileManager::FileManager(Clock& clock, ProgramLauncher& launcher)
    : clock_(clock), launcher_(launcher), callbackContext_(std::make_unique<QObject>()) {}

FileManager::~FileManager() = default;

void FileManager::reveal(const std::filesystem::path& file, Completion completion) {
    auto showing = std::make_shared<Showing>();
    const std::filesystem::path path = nearestExisting(file);
    showing->folder = folderOf(path);
    showing->calls = {
        {path == file ? "ShowItems" : "ShowFolders", path == file ? path : showing->folder}};
    showing->completion = std::move(completion);
    show(std::move(showing));
}

void FileManager::showProperties(const std::filesystem::path& folder, Completion completion) {
    auto showing = std::make_shared<Showing>();
    showing->folder = folderOf(nearestExisting(folder));
    showing->calls = {{"ShowItemProperties", showing->folder}, {"ShowFolders", showing->folder}};
    showing->completion = std::move(completion);
    show(std::move(showing));
}

void FileManager::show(std::shared_ptr<Showing> showing) {
    SessionBus::connect(
        callbackContext_.get(),
        clock_,
        [this, showing = std::move(showing)](std::unique_ptr<SessionBus> bus) {
            showing->bus = std::move(bus);
            callNext(showing);
        });
}

void FileManager::callNext(std::shared_ptr<Showing> showing) {
    if (!showing->bus || showing->calls.empty()) {
        launcher_.launch({"xdg-open", showing->folder.string()}, std::move(showing->completion));
        return;
    }
    const Showing::Call next = showing->calls.front();
    showing->calls.pop_front();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"),
        QString::fromLatin1(next.method));
    // The second argument is for a start-up notification, of which we have none.
    call << QStringList(uriOf(next.path)) << QString();
    auto* const watcher = new QDBusPendingCallWatcher(
        showing->bus->connection().asyncCall(call, static_cast<int>(longestAnswer.count())),
        callbackContext_.get());
    QObject::connect(
        watcher,
        &QDBusPendingCallWatcher::finished,
        callbackContext_.get(),
        [this, watcher, showing = std::move(showing)] {
            watcher->deleteLater();
            if (watcher->isError()) {
                callNext(showing);
            } else {
                // May destroy this object.
                std::exchange(showing->completion, nullptr)(std::nullopt);
            }
        });
}

} // namespace orvel
