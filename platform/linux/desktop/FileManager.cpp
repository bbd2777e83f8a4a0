// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/FileManager.h"

#include "platform/linux/support/SessionBus.h"

#include <QByteArray>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <deque>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

/// Long enough for the file manager to start.
constexpr std::chrono::milliseconds callTimeout{10'000};

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

struct FileManager::Request {
    struct Call {
        const char* method;
        std::filesystem::path path;
    };

    /// The calls still to try.
    std::deque<Call> calls;
    std::filesystem::path folder;
    Completion completion;
    /// Not shared: these calls are rare.
    std::unique_ptr<SessionBus> bus;
};

FileManager::FileManager(Clock& clock, ProgramLauncher& launcher)
    : clock_(clock), launcher_(launcher), callbackContext_(std::make_unique<QObject>()) {}

FileManager::~FileManager() = default;

void FileManager::reveal(const std::filesystem::path& file, Completion completion) {
    auto request = std::make_shared<Request>();
    const std::filesystem::path path = nearestExisting(file);
    request->folder = folderOf(path);
    request->calls = {
        {path == file ? "ShowItems" : "ShowFolders", path == file ? path : request->folder}};
    request->completion = std::move(completion);
    show(std::move(request));
}

void FileManager::showProperties(const std::filesystem::path& folder, Completion completion) {
    auto request = std::make_shared<Request>();
    request->folder = folderOf(nearestExisting(folder));
    request->calls = {{"ShowItemProperties", request->folder}, {"ShowFolders", request->folder}};
    request->completion = std::move(completion);
    show(std::move(request));
}

void FileManager::show(std::shared_ptr<Request> request) {
    SessionBus::connect(
        callbackContext_.get(),
        clock_,
        [this, request = std::move(request)](std::unique_ptr<SessionBus> bus) {
            request->bus = std::move(bus);
            callNext(request);
        });
}

void FileManager::callNext(std::shared_ptr<Request> request) {
    if (!request->bus || request->calls.empty()) {
        launcher_.launch({"xdg-open", request->folder.string()}, std::move(request->completion));
        return;
    }
    const Request::Call next = request->calls.front();
    request->calls.pop_front();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"),
        QString::fromLatin1(next.method));
    // The second argument is a start-up notification id; there is none.
    call << QStringList(uriOf(next.path)) << QString();
    const QDBusPendingCall pending =
        request->bus->connection().asyncCall(call, static_cast<int>(callTimeout.count()));
    SessionBus::onReply(
        pending,
        callbackContext_.get(),
        [this, request = std::move(request)](const QDBusPendingCall& finished) {
            if (finished.isError()) {
                callNext(request);
            } else {
                // The completion may destroy this object.
                std::exchange(request->completion, nullptr)(std::nullopt);
            }
        });
}

} // namespace orvel
