// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealInstanceRegistry.h"

#include "platform/macos/desktop/AppKitInstanceRegistry.h"
#include "platform/macos/support/FoundationConversions.h"

#include <unistd.h>

namespace orvel::test {

namespace {

/// An application that runs on every Mac with a logged-in user.
constexpr auto finder = "com.apple.finder";

class AppKitSubject final : public InstanceRegistrySubject {
public:
    ~AppKitSubject() override {
        if (observer_ != nil) {
            [[NSDistributedNotificationCenter defaultCenter] removeObserver:observer_];
        }
    }

    InstanceRegistry& registry() override { return *registry_; }
    void destroyRegistry() override { registry_.reset(); }

    std::string startFirstCopy() override {
        // Receives the notifications for copies of that application.
        observer_ = [[NSDistributedNotificationCenter defaultCenter]
            addObserverForName:nsString(std::string(finder) + ".activation")
                        object:nil
                         queue:NSOperationQueue.mainQueue
                    usingBlock:^(NSNotification*) {
                      isOtherTold_ = true;
                    }];
        return finder;
    }

    void startSecondCopy() override {
        // A second process would find this one in the same way, but this one has no bundle.
        AppKitInstanceRegistry second;
        static_cast<void>(second.runningCopy(testIdentifier));
        second.activateCopy({getpid()});
    }

    bool isOtherActivated() override { return isOtherTold_; }

private:
    bool isOtherTold_ = false;
    id<NSObject> observer_ = nil;
    std::unique_ptr<InstanceRegistry> registry_ = std::make_unique<AppKitInstanceRegistry>();
};

} // namespace

std::unique_ptr<InstanceRegistrySubject> makeRealInstanceRegistry() {
    return std::make_unique<AppKitSubject>();
}

} // namespace orvel::test
