// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/XdgWorkspace.h"

#include "core/messages/ChatDatabaseSnapshot.h"
#include "platform/linux/desktop/DebuggerProbe.h"
#include "platform/linux/support/DesktopProgram.h"
#include "platform/linux/support/SessionBus.h"

#include <QCoreApplication>
#include <QObject>
#include <QStandardPaths>
#include <QStringList>

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <variant>

namespace orvel {

namespace {

/// Only the characters that a URL may have: others are for a shell somewhere on the way.
bool isHttpsURL(std::string_view url) {
    constexpr auto characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                "-._~:/?#[]@!$&'()*+,;=%";
    return url.starts_with("https://") &&
           url.find_first_not_of(characters) == std::string_view::npos;
}

/// The completion, told what could not be done.
Workspace::Completion telling(std::string doing, Workspace::Completion completion) {
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

/// Where the user sees which programs may read contacts, best first, and then the contacts
/// themselves: most desktops ask nobody, and have only those.
std::vector<std::vector<std::string>> contactsPanels() {
    const QStringList desktops =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts);
    std::vector<std::vector<std::string>> panels;
    // Elsewhere it refuses to run.
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

/// Waits for that long, and on for the process of that number, should that take longer to end; but
/// not for ever.
constexpr auto relaunchScript =
    R"(i=0; while sleep "$2"; [ $i -lt 60 ] && kill -0 "$1" 2>/dev/null; do i=$((i + 1)); done; exec "$0")";

} // namespace

XdgWorkspace::XdgWorkspace(
    Clock& clock, std::filesystem::path ownProgram, tavrin::Seconds relaunchPause)
    : clock_(clock),
      ownProgram_(std::move(ownProgram)),
      relaunchPause_(relaunchPause),
      launcher_(clock),
      fileManager_(clock, launcher_),
      context_(std::make_unique<QObject>()) {}

XdgWorkspace::~XdgWorkspace() = default;

void XdgWorkspace::openURL(std::string url, Completion completion) {
    auto told = telling("Could not open the browser", std::move(completion));
    if (isHttpsURL(url)) {
        launcher_.launch({"xdg-open", std::move(url)}, std::move(told));
        return;
    }
    later([told = std::move(told)] {
        told(tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain), EINVAL, "the address is not a valid https one"));
    });
}

void XdgWorkspace::openSettings(SettingsPane pane, Completion completion) {
    switch (pane) {
    case SettingsPane::FullDiskAccess:
        fileManager_.showProperties(
            std::filesystem::path(tavrin::ChatDatabaseSnapshot::defaultSourcePath()).parent_path(),
            telling("Could not show the Messages folder", std::move(completion)));
        return;
    case SettingsPane::Contacts:
        launchFirst(
            contactsPanels(),
            telling("Could not open the settings of contacts", std::move(completion)));
        return;
    }
}

void XdgWorkspace::revealFile(std::string path, Completion completion) {
    fileManager_.reveal(std::move(path), telling("Could not show the file", std::move(completion)));
}

std::optional<Workspace::RunningApplication>
XdgWorkspace::runningCopy(const std::string& identifier) {
    if (!name_) {
        name_ = std::make_unique<InstanceName>(identifier, [this] { activated_.call(); });
    }
    // First: a copy that has the name, if only for a moment, has to be the one copy, since others
    // ask it to come to the front.
    if (const auto folder = InstanceLock::defaultFolder(identifier)) {
        const InstanceLock::Outcome held = lock_.take(*folder, identifier);
        if (const auto* other = std::get_if<InstanceLock::HeldBy>(&held)) {
            return RunningApplication{other->processIdentifier};
        }
    }
    // Also with the lock: a copy may run that has another folder for it, or none.
    const InstanceName::Outcome outcome = name_->take();
    if (const auto* other = std::get_if<InstanceName::OwnedBy>(&outcome)) {
        if (other->processIdentifier != getpid()) {
            return RunningApplication{other->processIdentifier};
        }
    }
    return std::nullopt;
}

void XdgWorkspace::activateCopy(const RunningApplication&) {
    if (name_) {
        name_->activateOwner();
    }
}

std::unique_ptr<Workspace::Subscription>
XdgWorkspace::onActivation(std::function<void()> activated) {
    return activated_.add(std::move(activated));
}

bool XdgWorkspace::shouldReduceMotion() const {
    return motion().isReduced();
}

std::unique_ptr<Workspace::Subscription>
XdgWorkspace::onReduceMotionChange(std::function<void()> changed) {
    static_cast<void>(motion());
    return motionChanged_.add(std::move(changed));
}

bool XdgWorkspace::hasTray() const {
    return tray().isPresent();
}

std::unique_ptr<Workspace::Subscription> XdgWorkspace::onTrayChange(std::function<void()> changed) {
    static_cast<void>(tray());
    return trayChanged_.add(std::move(changed));
}

void XdgWorkspace::activate() {}

void XdgWorkspace::scheduleRelaunch() {
    // Ignored when it fails, as the port has it.
    static_cast<void>(startSuccessor(
        {"/bin/sh",
         "-c",
         relaunchScript,
         ownProgram_.string(),
         std::to_string(getpid()),
         fmt::format("{}", relaunchPause_.count())}));
}

void XdgWorkspace::terminate() {
    QCoreApplication::quit();
}

bool XdgWorkspace::isDebuggerAttached() const {
    return orvel::isDebuggerAttached();
}

void XdgWorkspace::later(std::function<void()> job) {
    QMetaObject::invokeMethod(context_.get(), std::move(job), Qt::QueuedConnection);
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

std::unique_ptr<SessionBus> XdgWorkspace::sharedBus() const {
    return name_ ? name_->shareBus() : nullptr;
}

MotionPreference& XdgWorkspace::motion() const {
    if (!motion_) {
        motion_ = std::make_unique<MotionPreference>(
            clock_, sharedBus(), [this] { motionChanged_.call(); });
    }
    return *motion_;
}

TrayHost& XdgWorkspace::tray() const {
    if (!tray_) {
        tray_ = std::make_unique<TrayHost>(clock_, sharedBus(), [this] { trayChanged_.call(); });
    }
    return *tray_;
}

} // namespace orvel
