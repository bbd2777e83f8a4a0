// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Workspace.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class QObject;

namespace orvel {

/// The desktop's own way of opening things, xdg-open, and the kernel's word on debuggers.
///
/// On some desktops xdg-open itself becomes the browser and lives as long as it, so one that still
/// runs after five seconds counts as a success. Destroying the workspace leaves the browser alone.
/// Borrows the clock.
class XdgWorkspace final : public Workspace {
public:
    explicit XdgWorkspace(Clock& clock);
    ~XdgWorkspace() override;

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
    [[nodiscard]] ActivationPolicy activationPolicy() const override { return policy_; }
    void setActivationPolicy(ActivationPolicy policy) override { policy_ = policy; }
    void activate() override;
    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;

private:
    struct Opening {
        Completion completion;
        std::unique_ptr<Clock::Timer> timer;
    };

    void finish(std::uint64_t opening, const std::optional<tavrin::PlatformError>& error);

    Clock& clock_;
    ActivationPolicy policy_ = ActivationPolicy::Accessory;
    std::map<std::uint64_t, Opening> openings_;
    std::uint64_t lastOpening_ = 0;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> context_;
};

} // namespace orvel
