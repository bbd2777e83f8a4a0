// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealMotionPreference.h"

#include "platform/macos/desktop/AppKitMotionPreference.h"

#import <AppKit/AppKit.h>

/// Implements the methods of the workspace that the preference uses.
@interface OrvelTestAccessibility : NSObject
@property(nonatomic, readonly) NSNotificationCenter* notificationCenter;
@property(nonatomic) BOOL accessibilityDisplayShouldReduceMotion;
@end

@implementation OrvelTestAccessibility

- (instancetype)init {
    if ((self = [super init])) {
        _notificationCenter = [[NSNotificationCenter alloc] init];
    }
    return self;
}

@end

namespace orvel::test {

namespace {

class AppKitSubject final : public MotionPreferenceSubject {
public:
    MotionPreference& preference() override { return *preference_; }
    void destroyPreference() override { preference_.reset(); }

    void setReducesMotion(bool reduces) override {
        desktop_.accessibilityDisplayShouldReduceMotion = reduces ? YES : NO;
        [desktop_.notificationCenter
            postNotificationName:NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification
                          object:nil];
    }

private:
    OrvelTestAccessibility* desktop_ = [[OrvelTestAccessibility alloc] init];
    // It implements all methods that the preference uses.
    std::unique_ptr<MotionPreference> preference_ = std::make_unique<AppKitMotionPreference>(
        static_cast<NSWorkspace*>(static_cast<id>(desktop_)));
};

} // namespace

std::unique_ptr<MotionPreferenceSubject> makeRealMotionPreference() {
    return std::make_unique<AppKitSubject>();
}

} // namespace orvel::test
