// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWorkspace.h"

#include "platform/macos/desktop/AppKitWorkspace.h"
#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#include <unistd.h>

#include <optional>

/// What the workspace asks of the user's, without any of its effects.
@interface OrvelTestWorkspace : NSObject
@property(nonatomic, readonly) NSNotificationCenter* notificationCenter;
@property(nonatomic) BOOL accessibilityDisplayShouldReduceMotion;
@property(nonatomic) BOOL hasBrowser;
@end

@implementation OrvelTestWorkspace

- (instancetype)init {
    if ((self = [super init])) {
        _notificationCenter = [[NSNotificationCenter alloc] init];
        _hasBrowser = YES;
    }
    return self;
}

- (void)openURL:(NSURL*)url
        configuration:(NSWorkspaceOpenConfiguration*)configuration
    completionHandler:(void (^)(NSRunningApplication* app, NSError* error))completionHandler {
    NSError* const error =
        self.hasBrowser ? nil : [NSError errorWithDomain:NSCocoaErrorDomain code:256 userInfo:nil];
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      completionHandler(nil, error);
    });
}

@end

namespace orvel::test {

namespace {

/// Runs on every Mac that has a user.
constexpr auto finder = "com.apple.finder";

class AppKitSubject final : public WorkspaceSubject {
public:
    ~AppKitSubject() override {
        if (observer_ != nil) {
            [[NSDistributedNotificationCenter defaultCenter] removeObserver:observer_];
        }
    }

    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override { desktop_.hasBrowser = NO; }

    std::string startFirstCopy() override {
        // Hears what its copies would.
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
        // Another process would find this one in the same way, had this one a bundle.
        AppKitWorkspace second(desktop());
        static_cast<void>(second.runningCopy(testIdentifier));
        second.activateCopy({getpid()});
    }

    bool isOtherActivated() override { return isOtherTold_; }

    void setReducesMotion(bool reduces) override {
        desktop_.accessibilityDisplayShouldReduceMotion = reduces ? YES : NO;
        [desktop_.notificationCenter
            postNotificationName:NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification
                          object:nil];
    }

private:
    /// It answers to all that the workspace asks of it.
    NSWorkspace* desktop() const { return static_cast<NSWorkspace*>(static_cast<id>(desktop_)); }

    OrvelTestWorkspace* desktop_ = [[OrvelTestWorkspace alloc] init];
    bool isOtherTold_ = false;
    id<NSObject> observer_ = nil;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<AppKitWorkspace>(desktop());
};

} // namespace

std::unique_ptr<WorkspaceSubject> makeRealWorkspace() {
    return std::make_unique<AppKitSubject>();
}

} // namespace orvel::test
