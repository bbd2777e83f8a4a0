// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Subscribers.h"
#include "platform/Workspace.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

@class NSWorkspace;
@class OrvelReopenHandler;

namespace orvel {

/// The desktop as AppKit has it.
///
/// A copy is one that runs from a bundle of the same identifier; of those that are started at the
/// same time the first one stays. Opening the application's icon while it runs counts as another
/// copy that has brought it to the front, because the system then starts none. The menu bar is
/// always there.
class AppKitWorkspace final : public Workspace {
public:
    AppKitWorkspace();
    /// With another workspace than the user's.
    explicit AppKitWorkspace(NSWorkspace* workspace);
    ~AppKitWorkspace() override;

    void openURL(std::string url, Completion completion) override;
    void openSettings(SettingsPane pane, Completion completion) override;
    void revealFile(std::string path, Completion completion) override;
    [[nodiscard]] std::optional<RunningApplication>
    runningCopy(const std::string& identifier) override;
    void activateCopy(const RunningApplication& application) override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override;
    [[nodiscard]] bool shouldReduceMotion() const override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onReduceMotionChange(std::function<void()> changed) override;
    [[nodiscard]] bool hasTray() const override { return true; }
    [[nodiscard]] std::unique_ptr<Subscription>
    onTrayChange(std::function<void()> changed) override;
    [[nodiscard]] bool isTrayMenuBar() const override { return true; }
    /// Does nothing: the menu bar has what the toolkit gives it.
    void setTrayTitle(const std::string& /*title*/) override {}
    [[nodiscard]] ActivationPolicy activationPolicy() const override;
    void setActivationPolicy(ActivationPolicy policy) override;
    void activate() override;
    /// The bundle that this program is in is opened.
    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;

private:
    using Openings = PendingCalls<std::optional<tavrin::PlatformError>>;

    void open(NSURL* url, std::string doing, Completion completion);
    void listenForCopies();
    void listenForReopening();
    void accessibilityChanged();

    NSWorkspace* workspace_;
    std::string identifier_;
    bool reducesMotion_;
    Subscribers activated_;
    Subscribers motionChanged_;
    Subscribers trayChanged_;
    Openings openings_;
    OrvelReopenHandler* reopenHandler_;
    id<NSObject> launchObserver_;
    id<NSObject> copyObserver_;
    id<NSObject> accessibilityObserver_;
};

} // namespace orvel
