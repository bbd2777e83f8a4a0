// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel {

/// The user's desktop, as far as the agent deals with it. Main thread.
class Workspace {
public:
    /// Why it failed; nothing when the desktop took it over.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;

    /// Ends what it stands for when destroyed.
    class Subscription {
    public:
        Subscription() = default;
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
        virtual ~Subscription() = default;
    };

    /// Where the user grants a permission.
    enum class SettingsPane { FullDiskAccess, Contacts };

    /// How the desktop treats the application.
    enum class ActivationPolicy {
        /// As one with windows, which may come to the front by itself.
        Regular,
        /// As one that lives in the tray.
        Accessory,
    };

    /// Another copy of the application that runs in the same session.
    struct RunningApplication {
        std::int64_t processIdentifier = 0;
    };

    Workspace() = default;
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
    virtual ~Workspace() = default;

    /// Opens an https URL in the default browser. Calls back exactly once, never before this
    /// returns; not at all when the workspace is destroyed first.
    virtual void openURL(std::string url, Completion completion) = 0;

    /// Opens what the desktop has for that permission. Calls back as `openURL` does.
    virtual void openSettings(SettingsPane pane, Completion completion) = 0;

    /// Shows the file in the file manager. Calls back as `openURL` does.
    virtual void revealFile(std::string path, Completion completion) = 0;

    /// Makes this process the one copy of that identifier in this session, for as long as the
    /// workspace lives, unless another process is it already: then that one. Waits for the system,
    /// so for the start of the program only.
    [[nodiscard]] virtual std::optional<RunningApplication>
    runningCopy(const std::string& identifier) = 0;

    /// Brings the other copy to the front. Waits for the system as well.
    virtual void activateCopy(const RunningApplication& application) = 0;

    /// Calls back whenever another copy has brought this one to the front.
    [[nodiscard]] virtual std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) = 0;

    /// Whether the user wants nothing on the screen to move or to flash.
    [[nodiscard]] virtual bool shouldReduceMotion() const = 0;

    /// Calls back whenever that changes.
    [[nodiscard]] virtual std::unique_ptr<Subscription>
    onReduceMotionChange(std::function<void()> changed) = 0;

    /// Whether the desktop has a place for a tray icon; false until that is known.
    [[nodiscard]] virtual bool hasTray() const = 0;

    /// Calls back whenever that changes.
    [[nodiscard]] virtual std::unique_ptr<Subscription>
    onTrayChange(std::function<void()> changed) = 0;

    /// Whether the tray is part of a menu bar: it gives its icons their colour, and an icon that
    /// has a menu opens it at every click.
    [[nodiscard]] virtual bool isTrayMenuBar() const = 0;

    /// What the tray tells screen readers of the icon that is in it, where the toolkit that shows
    /// the icon does not care for that.
    virtual void setTrayTitle(const std::string& title) = 0;

    [[nodiscard]] virtual ActivationPolicy activationPolicy() const = 0;
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;

    /// Lets this application's windows come to the front, whichever application has the focus.
    virtual void activate() = 0;

    /// Starts this program anew once it has ended, in a second or later. A failure is ignored.
    virtual void scheduleRelaunch() = 0;

    /// Ends the application as the user would, by way of its event loop.
    virtual void terminate() = 0;

    /// Whether another process traces this one just now. No protection of any kind.
    [[nodiscard]] virtual bool isDebuggerAttached() const = 0;
};

} // namespace orvel
