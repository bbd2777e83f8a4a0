// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitMotionPreference.h"

#import <AppKit/AppKit.h>

#include <utility>

namespace orvel {

AppKitMotionPreference::AppKitMotionPreference(NSWorkspace* workspace)
    : workspace_(workspace),
      reducesMotion_(workspace.accessibilityDisplayShouldReduceMotion == YES) {
    accessibilityObserver_ = [workspace_.notificationCenter
        addObserverForName:NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification
                    object:nil
                     queue:NSOperationQueue.mainQueue
                usingBlock:^(NSNotification*) {
                  accessibilityChanged();
                }];
}

AppKitMotionPreference::~AppKitMotionPreference() {
    [workspace_.notificationCenter removeObserver:accessibilityObserver_];
}

bool AppKitMotionPreference::shouldReduceMotion() {
    return workspace_.accessibilityDisplayShouldReduceMotion == YES;
}

std::unique_ptr<Subscription> AppKitMotionPreference::onChange(std::function<void()> changed) {
    return changed_.add(std::move(changed));
}

void AppKitMotionPreference::accessibilityChanged() {
    // The notification is sent for every accessibility display option.
    const bool reducesMotion = shouldReduceMotion();
    if (std::exchange(reducesMotion_, reducesMotion) != reducesMotion) {
        changed_.call();
    }
}

} // namespace orvel
