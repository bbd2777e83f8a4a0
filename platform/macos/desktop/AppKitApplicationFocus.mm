// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitApplicationFocus.h"

#import <AppKit/AppKit.h>

namespace orvel {

ApplicationFocus::ActivationPolicy AppKitApplicationFocus::activationPolicy() const {
    return
        [NSApplication.sharedApplication activationPolicy] == NSApplicationActivationPolicyRegular
            ? ActivationPolicy::Regular
            : ActivationPolicy::Accessory;
}

void AppKitApplicationFocus::setActivationPolicy(ActivationPolicy policy) {
    switch (policy) {
    case ActivationPolicy::Regular:
        [NSApplication.sharedApplication setActivationPolicy:NSApplicationActivationPolicyRegular];
        return;
    case ActivationPolicy::Accessory:
        [NSApplication.sharedApplication
            setActivationPolicy:NSApplicationActivationPolicyAccessory];
        return;
    }
}

void AppKitApplicationFocus::activate() {
    [NSApplication.sharedApplication activateIgnoringOtherApps:YES];
}

} // namespace orvel
