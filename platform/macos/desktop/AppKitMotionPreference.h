// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/MotionPreference.h"
#include "platform/Subscribers.h"

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>

@class NSWorkspace;

namespace orvel {

/// The system's accessibility setting.
class AppKitMotionPreference final : public MotionPreference {
public:
    explicit AppKitMotionPreference(NSWorkspace* workspace);
    ~AppKitMotionPreference() override;

    [[nodiscard]] bool shouldReduceMotion() override;
    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override;

private:
    void accessibilityChanged();

    NSWorkspace* workspace_;
    bool reducesMotion_;
    Subscribers changed_;
    id<NSObject> accessibilityObserver_;
};

} // namespace orvel
