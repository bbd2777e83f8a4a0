// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/XdgWorkspace.h"

#include "core/messages/ChatDatabaseSnapshot.h"
#include "platform/linux/support/DesktopProgram.h"
#include "platform/linux/support/SessionBus.h"
#include "platform/linux/support/StartThread.h"
#include "platform/linux/support/WebAddress.h"

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QStandardPaths>
#include <QStringList>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <deque>
#include <system_error>
#include <utility>
#include <variant>

namespace orvel {

namespace {

/// How long a program may start, and a disk may take to answer.
constexpr tavrin::Seconds timeout(5);

/// Long enough for the file manager to start.
constexpr std::chrono::milliseconds fileManagerTimeout{10'000};

/// Adds what could not be done to the completion's error.
Workspace::Completion withContext(std::string doing, Workspace::Completion completion) {
    return [doing = std::move(doing),
            completion = std::move(completion)](const std::optional<tavrin::PlatformError>& error) {
        if (!error) {
            completion(std::nullopt);
            return;
        }
        completion(tavrin::PlatformError(
            error->domain(), error->code(), fmt::format("{}: {}", doing, error->what())));
    };
}

bool isInstalled(const std::string& program) {
    return !QStandardPaths::findExecutable(QString::fromStdString(program)).isEmpty();
}

/// Candidates in order of preference: the desktop's privacy settings, then address books, because
/// most desktops have no such settings.
std::vector<std::vector<std::string>> contactsPanels() {
    const QStringList desktops =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts);
    std::vector<std::vector<std::string>> panels;
    // On other desktops gnome-control-center refuses to run.
    if (desktops.contains(QStringLiteral("GNOME")) || desktops.contains(QStringLiteral("Unity"))) {
        panels.push_back({"gnome-control-center", "applications"});
    }
    if (desktops.contains(QStringLiteral("KDE"))) {
        panels.push_back({"systemsettings"});
        panels.push_back({"systemsettings5"});
    }
    panels.push_back({"gnome-contacts"});
    panels.push_back({"evolution", "--component=contacts"});
    panels.push_back({"kaddressbook"});
    std::erase_if(panels, [](const auto& panel) { return !isInstalled(panel.front()); });
    return panels;
}

/// What the disk says about a path.
struct Place {
    /// The path, or the nearest folder above it that exists.
    std::filesystem::path existing;
    std::filesystem::path folder;
};

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

Place placeOf(const std::filesystem::path& path) {
    Place place;
    place.existing = nearestExisting(path);
    place.folder = folderOf(place.existing);
    return place;
}

QString uriOf(const std::filesystem::path& path) {
    return QStringLiteral("file://") +
           QString::fromLatin1(QByteArray::fromStdString(path.string()).toPercentEncoding("/"));
}

} // namespace

struct XdgWorkspace::FileManagerRequest {
    struct Call {
        const char* method;
        std::filesystem::path path;
    };

    /// The calls still to try.
    std::deque<Call> calls;
    std::filesystem::path folder;
    Completion completion;
    /// Not shared: these calls are rare.
    std::unique_ptr<SessionBus> bus = nullptr;
};

XdgWorkspace::XdgWorkspace(Clock& clock) : clock_(clock) {}

void XdgWorkspace::openURL(std::string url, Completion completion) {
    auto wrapped = withContext("Could not open the browser", std::move(completion));
    if (isHttpsURL(url) || isLoopbackURL(url)) {
        launch({"xdg-open", std::move(url)}, std::move(wrapped));
        return;
    }
    callbackContext_.post([wrapped = std::move(wrapped)] {
        wrapped(tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain), EINVAL, "the address is not a valid https one"));
    });
}

void XdgWorkspace::openSettings(SettingsPane pane, Completion completion) {
    switch (pane) {
    case SettingsPane::FullDiskAccess:
        afterDisk(
            [database = std::filesystem::path(tavrin::ChatDatabaseSnapshot::defaultSourcePath())] {
                return placeOf(database.parent_path());
            },
            withContext("Could not show the Messages folder", std::move(completion)),
            [this](const Place& place, Completion shown) {
                askFileManager(std::make_shared<FileManagerRequest>(FileManagerRequest{
                    {{"ShowItemProperties", place.folder}, {"ShowFolders", place.folder}},
                    place.folder,
                    std::move(shown)}));
            });
        return;
    case SettingsPane::Contacts:
        afterDisk(
            contactsPanels,
            withContext("Could not open the settings of contacts", std::move(completion)),
            [this](std::vector<CommandLine> panels, Completion opened) {
                launchFirst(std::move(panels), std::move(opened));
            });
        return;
    }
}

void XdgWorkspace::revealFile(std::string path, Completion completion) {
    afterDisk(
        [path] { return placeOf(path); },
        withContext("Could not show the file", std::move(completion)),
        [this, path](const Place& place, Completion shown) {
            const bool isThere = place.existing == path;
            askFileManager(std::make_shared<FileManagerRequest>(FileManagerRequest{
                {{isThere ? "ShowItems" : "ShowFolders", isThere ? place.existing : place.folder}},
                place.folder,
                std::move(shown)}));
        });
}

std::uint64_t XdgWorkspace::await(
    Completion completion, const std::optional<tavrin::PlatformError>& timeoutError) {
    const std::uint64_t pending = ++lastPending_;
    pending_[pending] = {
        std::move(completion),
        clock_.schedule(timeout, [this, pending, timeoutError] { finish(pending, timeoutError); })};
    return pending;
}

void XdgWorkspace::finish(
    std::uint64_t pending, const std::optional<tavrin::PlatformError>& error) {
    if (const auto found = pending_.extract(pending); !found.empty()) {
        // The completion may destroy this object.
        found.mapped().completion(error);
    }
}

template <typename Examine, typename Next>
void XdgWorkspace::afterDisk(Examine examine, Completion completion, Next next) {
    const std::uint64_t pending = await(
        std::move(completion),
        tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain), ETIMEDOUT, "the disk does not answer"));
    startThread(
        &callbackContext_,
        std::move(examine),
        [this, pending, next = std::move(next)](auto result) {
            if (const auto found = pending_.extract(pending); !found.empty()) {
                next(std::move(result), std::move(found.mapped().completion));
            }
        })
        .detach();
}

void XdgWorkspace::launch(CommandLine commandLine, Completion completion) {
    const std::uint64_t launch = await(std::move(completion), std::nullopt);
    std::string program = commandLine.front();
    runDesktopProgram(
        std::move(commandLine),
        ProgramOutput::Dropped,
        &callbackContext_,
        [this, launch, program = std::move(program)](const auto& result) {
            if (const auto* error = std::get_if<tavrin::PlatformError>(&result)) {
                finish(launch, *error);
            } else if (const int status = std::get<FinishedProgram>(result).status; status != 0) {
                finish(
                    launch,
                    tavrin::PlatformError(
                        program, status, fmt::format("{} ended with status {}", program, status)));
            } else {
                finish(launch);
            }
        });
}

void XdgWorkspace::launchFirst(std::vector<CommandLine> candidates, Completion completion) {
    if (candidates.empty()) {
        callbackContext_.post([completion = std::move(completion)] {
            completion(tavrin::PlatformError(
                std::string(tavrin::posixErrorDomain),
                ENOENT,
                "this desktop has neither a panel for them nor an address book"));
        });
        return;
    }
    CommandLine first = std::move(candidates.front());
    candidates.erase(candidates.begin());
    launch(
        std::move(first),
        [this, candidates = std::move(candidates), completion = std::move(completion)](
            const std::optional<tavrin::PlatformError>& error) {
            if (error && !candidates.empty()) {
                launchFirst(candidates, completion);
            } else {
                completion(error);
            }
        });
}

void XdgWorkspace::askFileManager(std::shared_ptr<FileManagerRequest> request) {
    SessionBus::connect(
        &callbackContext_,
        clock_,
        [this, request = std::move(request)](std::unique_ptr<SessionBus> bus) {
            request->bus = std::move(bus);
            callFileManager(request);
        });
}

void XdgWorkspace::callFileManager(std::shared_ptr<FileManagerRequest> request) {
    if (!request->bus || request->calls.empty()) {
        launch({"xdg-open", request->folder.string()}, std::move(request->completion));
        return;
    }
    const FileManagerRequest::Call next = request->calls.front();
    request->calls.pop_front();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"),
        QString::fromLatin1(next.method));
    // The second argument is a start-up notification id; there is none.
    call << QStringList(uriOf(next.path)) << QString();
    const QDBusPendingCall pending =
        request->bus->connection().asyncCall(call, static_cast<int>(fileManagerTimeout.count()));
    SessionBus::onReply(
        pending,
        &callbackContext_,
        [this, request = std::move(request)](const QDBusPendingCall& finished) {
            if (finished.isError()) {
                callFileManager(request);
            } else {
                // The completion may destroy this object.
                std::exchange(request->completion, nullptr)(std::nullopt);
            }
        });
}

} // namespace orvel
