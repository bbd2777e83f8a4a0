// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Subscribers.h"
#include "platform/Workspace.h"
#include "platform/linux/desktop/FileManager.h"
#include "platform/linux/desktop/InstanceLock.h"
#include "platform/linux/desktop/InstanceName.h"
#include "platform/linux/desktop/MotionPreference.h"
#include "platform/linux/desktop/ProgramLauncher.h"
#include "platform/linux/desktop/TrayHost.h"
#include "platform/linux/desktop/TrayItem.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QObject;

namespace orvel {

/// The desktop by its common ways: xdg-open and the file manager for opening things, the session
/// bus and a lock file for the one running copy, the portal for what the user prefers, and the
/// kernel's word on debuggers.
///
/// There is no prompt of the system's for which a program must come to the front, and no icon of
/// ours outside the tray: the activation policy is only kept. Borrows the clock.
class XdgWorkspace final : public Workspace {
public:
    /// The program is what a relaunch starts: after that pause at the earliest, and when this
    /// process still runs then, after up to sixty more of them.
    XdgWorkspace(
        Clock& clock,
        std::filesystem::path ownProgram,
        tavrin::Seconds relaunchPause = tavrin::Seconds(1));
    ~XdgWorkspace() override;

    void openURL(std::string url, Completion completion) override;
    /// The properties of the folder with the Messages database; the desktop's own settings of
    /// privacy, or else its address book.
    void openSettings(SettingsPane pane, Completion completion) override;
    void revealFile(std::string path, Completion completion) override;
    /// By a name on the session bus, and by a lock file for copies that are on none or on another.
    [[nodiscard]] std::optional<RunningApplication>
    runningCopy(const std::string& identifier) override;
    /// Does nothing for a copy that cannot be reached on the session bus.
    void activateCopy(const RunningApplication& application) override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override;
    /// False until the portal has told, which it is asked in the background at the first call.
    [[nodiscard]] bool shouldReduceMotion() const override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onReduceMotionChange(std::function<void()> changed) override;
    /// Found out in the background from the first call on.
    [[nodiscard]] bool hasTray() const override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onTrayChange(std::function<void()> changed) override;
    [[nodiscard]] bool isTrayMenuBar() const override { return false; }
    void setTrayTitle(const std::string& title) override { trayItem_.setTitle(title); }
    [[nodiscard]] ActivationPolicy activationPolicy() const override { return policy_; }
    void setActivationPolicy(ActivationPolicy policy) override { policy_ = policy; }
    /// Does nothing: on these desktops it is windows that ask to come to the front, when they are
    /// shown or raised, and the desktop decides.
    void activate() override;
    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;

private:
    using CommandLines = std::vector<std::vector<std::string>>;

    void later(std::function<void()> job);
    void launchFirst(CommandLines candidates, Completion completion);
    /// That of the name, once it is taken: connecting again would take time at the start.
    [[nodiscard]] std::unique_ptr<SessionBus> sharedBus() const;
    MotionPreference& motion() const;
    TrayHost& tray() const;

    Clock& clock_;
    std::filesystem::path ownProgram_;
    tavrin::Seconds relaunchPause_;
    ActivationPolicy policy_ = ActivationPolicy::Accessory;
    Subscribers activated_;
    Subscribers motionChanged_;
    Subscribers trayChanged_;
    std::unique_ptr<InstanceName> name_;
    InstanceLock lock_;
    ProgramLauncher launcher_;
    FileManager fileManager_;
    TrayItem trayItem_;
    /// Made when first asked for: not every program wants to know.
    mutable std::unique_ptr<MotionPreference> motion_;
    mutable std::unique_ptr<TrayHost> tray_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> context_;
};

} // namespace orvel
