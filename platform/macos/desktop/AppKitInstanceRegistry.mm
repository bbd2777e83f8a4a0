// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitInstanceRegistry.h"

#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>
#include <unistd.h>

#include <utility>

/// Takes the event that an application gets when its icon is opened while it runs.
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

/// Whether that copy was the first of the two: of copies that are started at once, each of which
/// sees the others, all but one have to end.
bool isEarlier(NSRunningApplication* copy, NSRunningApplication* own) {
    // It has looked for others already.
    if (copy.finishedLaunching) {
        return true;
    }
    // The system dates only what it has launched itself.
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

/// Longest wait for a notification to be on its way.
constexpr NSTimeInterval longestSending = 2;

/// To the one copy of that process.
NSString* activationNotification(const std::string& identifier) {
    return nsString(identifier + ".activation");
}

NSString* addressOf(std::int64_t processIdentifier) {
    return nsString(std::to_string(processIdentifier));
}

} // namespace

AppKitInstanceRegistry::AppKitInstanceRegistry() {
    // Not before, because AppKit then puts its own handlers in place.
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
            // Since then an application gets the focus only from the one that has it: this one, if
            // the user has just started it.
            [NSApplication.sharedApplication yieldActivationToApplication:copy];
        }
        [copy activateWithOptions:0];
    }
    // An application without a window in front has nothing to show for its activation, and cannot
    // tell this one from the user's.
    NSDistributedNotificationCenter* const center = [NSDistributedNotificationCenter defaultCenter];
    NSString* const name = activationNotification(identifier_);
    NSString* const address = addressOf(application.processIdentifier);
    // Whoever calls this may end the process right away, and with it what is still to be sent. Only
    // its coming back to us tells that it has gone out.
    __block bool isSent = false;
    const id<NSObject> observer = [center addObserverForName:name
                                                      object:address
                                                       queue:nil
                                                  usingBlock:^(NSNotification*) {
                                                    isSent = true;
                                                  }];
    [center postNotificationName:name object:address userInfo:nil deliverImmediately:YES];
    NSDate* const end = [NSDate dateWithTimeIntervalSinceNow:longestSending];
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
