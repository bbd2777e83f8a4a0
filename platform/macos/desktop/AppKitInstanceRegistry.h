// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/InstanceRegistry.h"
#include "platform/Subscribers.h"

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

@class OrvelReopenHandler;

namespace orvel {

/// Copies are processes with the same bundle identifier. Of copies started at the same time, the
/// first one continues. If the user opens the application's icon while it runs, the system starts
/// no copy. That is reported as an activation, too.
class AppKitInstanceRegistry final : public InstanceRegistry {
public:
    AppKitInstanceRegistry();
    ~AppKitInstanceRegistry() override;

    [[nodiscard]] std::optional<RunningApplication>
    runningCopy(const std::string& identifier) override;
    void activateCopy(const RunningApplication& application) override;
    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override;

private:
    void listenForCopies();
    void listenForReopening();

    std::string identifier_;
    Subscribers activated_;
    OrvelReopenHandler* reopenHandler_;
    id<NSObject> launchObserver_;
    id<NSObject> copyObserver_;
};

} // namespace orvel
