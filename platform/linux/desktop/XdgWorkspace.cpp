// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/XdgWorkspace.h"

#include "core/messages/ChatDatabaseSnapshot.h"

#include <QObject>
#include <QStandardPaths>
#include <QStringList>

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// Rejects characters that a URL may not have, because a shell script may mishandle them.
bool isHttpsURL(std::string_view url) {
    constexpr auto characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                "-._~:/?#[]@!$&'()*+,;=%";
    return url.starts_with("https://") &&
           url.find_first_not_of(characters) == std::string_view::npos;
}

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

} // namespace

XdgWorkspace::XdgWorkspace(Clock& clock)
    : launcher_(clock),
      fileManager_(clock, launcher_),
      callbackContext_(std::make_unique<QObject>()) {}

XdgWorkspace::~XdgWorkspace() = default;

void XdgWorkspace::openURL(std::string url, Completion completion) {
    auto wrapped = withContext("Could not open the browser", std::move(completion));
    if (isHttpsURL(url)) {
        launcher_.launch({"xdg-open", std::move(url)}, std::move(wrapped));
        return;
    }
    later([wrapped = std::move(wrapped)] {
        wrapped(tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain), EINVAL, "the address is not a valid https one"));
    });
}

void XdgWorkspace::openSettings(SettingsPane pane, Completion completion) {
    switch (pane) {
    case SettingsPane::FullDiskAccess:
        fileManager_.showProperties(
            std::filesystem::path(tavrin::ChatDatabaseSnapshot::defaultSourcePath()).parent_path(),
            withContext("Could not show the Messages folder", std::move(completion)));
        return;
    case SettingsPane::Contacts:
        launchFirst(
            contactsPanels(),
            withContext("Could not open the settings of contacts", std::move(completion)));
        return;
    }
}

void XdgWorkspace::revealFile(std::string path, Completion completion) {
    fileManager_.reveal(
        std::move(path), withContext("Could not show the file", std::move(completion)));
}

void XdgWorkspace::later(std::function<void()> job) {
    QMetaObject::invokeMethod(callbackContext_.get(), std::move(job), Qt::QueuedConnection);
}

void XdgWorkspace::launchFirst(CommandLines candidates, Completion completion) {
    if (candidates.empty()) {
        later([completion = std::move(completion)] {
            completion(tavrin::PlatformError(
                std::string(tavrin::posixErrorDomain),
                ENOENT,
                "this desktop has neither a panel for them nor an address book"));
        });
        return;
    }
    std::vector<std::string> first = std::move(candidates.front());
    candidates.erase(candidates.begin());
    launcher_.launch(
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

} // namespace orvel
