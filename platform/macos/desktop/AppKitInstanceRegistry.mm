// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitInstanceRegistry.h"

#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>
#include <unistd.h>

#include <utility>

/// Handles the event that the system sends when the user opens the application while it runs.
@interface OrvelReopenHandler : NSObject
- (instancetype)initWithCallback:(std::function<void()>)callback;
- (void)handleReopen:(NSAppleEventDescriptor*)event
      withReplyEvent:(NSAppleEventDescriptor*)replyEvent;
@end

@implementation OrvelReopenHandler {
    std::function<void()> _callback;
}

- (instancetype)initWithCallback:(std::function<void()>)callback {
    if ((self = [super init])) {
        _callback = std::move(callback);
    }
    return self;
}

- (void)handleReopen:(NSAppleEventDescriptor*)event
      withReplyEvent:(NSAppleEventDescriptor*)replyEvent {
    _callback();
}

@end

namespace orvel {

namespace {

/// Whether `copy` started before `own`. Copies that start at the same time find each other; this
/// order decides which one continues.
bool isEarlier(NSRunningApplication* copy, NSRunningApplication* own) {
    // It has already looked for copies and decided to continue.
    if (copy.finishedLaunching) {
        return true;
    }
    // Only applications that the system launched have a launch date.
    NSDate* const date = copy.launchDate;
    NSDate* const ownDate = own.launchDate;
    if (date != nil && ownDate != nil) {
        const NSComparisonResult order = [date compare:ownDate];
        if (order != NSOrderedSame) {
            return order == NSOrderedAscending;
        }
    }
    return copy.processIdentifier < own.processIdentifier;
}

/// Longest wait until a notification is sent.
constexpr NSTimeInterval maximumSendTime = 2;

/// The name of the notification that activates a copy. Its object is `addressOf` the copy.
NSString* activationNotification(const std::string& identifier) {
    return nsString(identifier + ".activation");
}

NSString* addressOf(std::int64_t processIdentifier) {
    return nsString(std::to_string(processIdentifier));
}

} // namespace

AppKitInstanceRegistry::AppKitInstanceRegistry() {
    // Wait until the launch has finished, because AppKit installs its own handlers then.
    launchObserver_ = [NSNotificationCenter.defaultCenter
        addObserverForName:NSApplicationDidFinishLaunchingNotification
                    object:nil
                     queue:NSOperationQueue.mainQueue
                usingBlock:^(NSNotification*) {
                  listenForReopening();
                }];
}

AppKitInstanceRegistry::~AppKitInstanceRegistry() {
    [NSNotificationCenter.defaultCenter removeObserver:launchObserver_];
    if (copyObserver_ != nil) {
        [[NSDistributedNotificationCenter defaultCenter] removeObserver:copyObserver_];
    }
    if (reopenHandler_ != nil) {
        [[NSAppleEventManager sharedAppleEventManager]
            removeEventHandlerForEventClass:kCoreEventClass
                                 andEventID:kAEReopenApplication];
    }
}

std::optional<InstanceRegistry::RunningApplication>
AppKitInstanceRegistry::runningCopy(const std::string& identifier) {
    identifier_ = identifier;
    NSRunningApplication* const own = NSRunningApplication.currentApplication;
    for (NSRunningApplication* copy in
         [NSRunningApplication runningApplicationsWithBundleIdentifier:nsString(identifier)]) {
        if (copy.processIdentifier != getpid() && !copy.terminated && isEarlier(copy, own)) {
            return RunningApplication{copy.processIdentifier};
        }
    }
    listenForCopies();
    return std::nullopt;
}

void AppKitInstanceRegistry::activateCopy(const RunningApplication& application) {
    const auto processIdentifier = static_cast<pid_t>(application.processIdentifier);
    NSRunningApplication* const copy =
        [NSRunningApplication runningApplicationWithProcessIdentifier:processIdentifier];
    if (copy != nil) {
        if (@available(macOS 14.0, *)) {
            // Since macOS 14, only the active application can pass on the focus. This process is
            // active if the user has just started it.
            [NSApplication.sharedApplication yieldActivationToApplication:copy];
        }
        [copy activateWithOptions:0];
    }
    // Also notify the copy. Activating a copy without an open window shows nothing, and the copy
    // cannot distinguish this activation from one by the user.
    NSDistributedNotificationCenter* const center = [NSDistributedNotificationCenter defaultCenter];
    NSString* const name = activationNotification(identifier_);
    NSString* const address = addressOf(application.processIdentifier);
    // The caller may end the process at once, which would drop an unsent notification. Receiving it
    // here shows that it was sent.
    __block bool isSent = false;
    const id<NSObject> observer = [center addObserverForName:name
                                                      object:address
                                                       queue:nil
                                                  usingBlock:^(NSNotification*) {
                                                    isSent = true;
                                                  }];
    [center postNotificationName:name object:address userInfo:nil deliverImmediately:YES];
    NSDate* const end = [NSDate dateWithTimeIntervalSinceNow:maximumSendTime];
    while (!isSent && end.timeIntervalSinceNow > 0 &&
           [NSRunLoop.currentRunLoop runMode:NSDefaultRunLoopMode beforeDate:end]) {
    }
    [center removeObserver:observer];
}

std::unique_ptr<Subscription>
AppKitInstanceRegistry::onActivation(std::function<void()> activated) {
    return activated_.add(std::move(activated));
}

void AppKitInstanceRegistry::listenForCopies() {
    if (copyObserver_ != nil) {
        return;
    }
    copyObserver_ = [[NSDistributedNotificationCenter defaultCenter]
        addObserverForName:activationNotification(identifier_)
                    object:addressOf(getpid())
                     queue:NSOperationQueue.mainQueue
                usingBlock:^(NSNotification*) {
                  activated_.call();
                }];
}

void AppKitInstanceRegistry::listenForReopening() {
    reopenHandler_ = [[OrvelReopenHandler alloc] initWithCallback:[this] {
        activated_.call();
    }];
    [[NSAppleEventManager sharedAppleEventManager] setEventHandler:reopenHandler_
                                                       andSelector:@selector(handleReopen:
                                                                           withReplyEvent:)
                                                     forEventClass:kCoreEventClass
                                                        andEventID:kAEReopenApplication];
}

} // namespace orvel
