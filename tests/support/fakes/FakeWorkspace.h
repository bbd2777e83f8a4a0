// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Subscribers.h"
#include "platform/Workspace.h"

#include <QObject>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

/// A desktop that only takes notes.
class FakeWorkspace final : public Workspace {
public:
    /// Opening fails with this when set.
    std::optional<tavrin::PlatformError> openError;
    /// Everything that was to be opened.
    std::vector<std::string> openedURLs;
    std::vector<SettingsPane> openedSettings;
    std::vector<std::string> revealedFiles;

    std::optional<RunningApplication> otherCopy;
    std::vector<std::int64_t> activatedCopies;

    bool isMenuBar = false;
    std::string trayTitle;
    bool hasDebugger = false;
    ActivationPolicy policy = ActivationPolicy::Accessory;
    /// Every policy that was set.
    std::vector<ActivationPolicy> policies;
    int activations = 0;
    int relaunches = 0;
    int terminations = 0;

    void openURL(std::string url, Completion completion) override {
        openedURLs.push_back(std::move(url));
        answer(std::move(completion));
    }

    void openSettings(SettingsPane pane, Completion completion) override {
        openedSettings.push_back(pane);
        answer(std::move(completion));
    }

    void revealFile(std::string path, Completion completion) override {
        revealedFiles.push_back(std::move(path));
        answer(std::move(completion));
    }

    [[nodiscard]] std::optional<RunningApplication> runningCopy(const std::string&) override {
        return otherCopy;
    }

    void activateCopy(const RunningApplication& application) override {
        activatedCopies.push_back(application.processIdentifier);
    }

    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override {
        return activated_.add(std::move(activated));
    }

    [[nodiscard]] bool shouldReduceMotion() const override { return reducesMotion_; }

    [[nodiscard]] std::unique_ptr<Subscription>
    onReduceMotionChange(std::function<void()> changed) override {
        return motionChanged_.add(std::move(changed));
    }

    [[nodiscard]] bool hasTray() const override { return hasTray_; }

    [[nodiscard]] std::unique_ptr<Subscription>
    onTrayChange(std::function<void()> changed) override {
        return trayChanged_.add(std::move(changed));
    }

    [[nodiscard]] bool isTrayMenuBar() const override { return isMenuBar; }

    void setTrayTitle(const std::string& title) override { trayTitle = title; }

    [[nodiscard]] ActivationPolicy activationPolicy() const override { return policy; }

    void setActivationPolicy(ActivationPolicy newPolicy) override {
        policy = newPolicy;
        policies.push_back(newPolicy);
    }

    void activate() override { ++activations; }
    void scheduleRelaunch() override { ++relaunches; }
    void terminate() override { ++terminations; }

    [[nodiscard]] bool isDebuggerAttached() const override { return hasDebugger; }

    /// Another copy was started.
    void beActivated() { activated_.call(); }

    void setReducesMotion(bool reduces) {
        reducesMotion_ = reduces;
        motionChanged_.call();
    }

    void setHasTray(bool hasTray) {
        hasTray_ = hasTray;
        trayChanged_.call();
    }

private:
    void answer(Completion completion) {
        QMetaObject::invokeMethod(
            &context_,
            [completion = std::move(completion), error = openError] { completion(error); },
            Qt::QueuedConnection);
    }

    bool reducesMotion_ = false;
    Subscribers activated_;
    Subscribers motionChanged_;
    bool hasTray_ = true;
    Subscribers trayChanged_;
    QObject context_;
};

} // namespace orvel::test
