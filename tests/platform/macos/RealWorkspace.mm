// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWorkspace.h"

#include "platform/macos/desktop/AppKitWorkspace.h"

#import <AppKit/AppKit.h>

/// Implements the methods of `NSWorkspace` that the workspace uses, without their effects.
@interface OrvelTestWorkspace : NSObject
@property(nonatomic) BOOL hasBrowser;
@end

@implementation OrvelTestWorkspace

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

class AppKitSubject final : public WorkspaceSubject {
public:
    AppKitSubject() { desktop_.hasBrowser = YES; }

    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override { desktop_.hasBrowser = NO; }

private:
    OrvelTestWorkspace* desktop_ = [[OrvelTestWorkspace alloc] init];
    // It implements all methods that the workspace uses.
    std::unique_ptr<Workspace> workspace_ =
        std::make_unique<AppKitWorkspace>(static_cast<NSWorkspace*>(static_cast<id>(desktop_)));
};

} // namespace

std::unique_ptr<WorkspaceSubject> makeRealWorkspace() {
    return std::make_unique<AppKitSubject>();
}

} // namespace orvel::test
