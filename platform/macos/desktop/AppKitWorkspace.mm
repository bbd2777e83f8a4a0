// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitWorkspace.h"

#include "platform/macos/desktop/DebuggerProbe.h"
#include "platform/macos/desktop/RelaunchScript.h"
#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
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

tavrin::PlatformError failure(const std::string& doing, const tavrin::PlatformError& error) {
    return {error.domain(), error.code(), doing + ": " + error.what()};
}

NSString* settingsURL(Workspace::SettingsPane pane) {
    switch (pane) {
    case Workspace::SettingsPane::FullDiskAccess:
        break;
    case Workspace::SettingsPane::Contacts:
        return @"x-apple.systempreferences:com.apple.preference.security?Privacy_Contacts";
    }
    return @"x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
}

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

AppKitWorkspace::AppKitWorkspace() : AppKitWorkspace(NSWorkspace.sharedWorkspace) {}

AppKitWorkspace::AppKitWorkspace(NSWorkspace* workspace)
    : workspace_(workspace),
      reducesMotion_(workspace.accessibilityDisplayShouldReduceMotion == YES) {
    accessibilityObserver_ = [workspace_.notificationCenter
        addObserverForName:NSWorkspaceAccessibilityDisplayOptionsDidChangeNotification
                    object:nil
                     queue:NSOperationQueue.mainQueue
                usingBlock:^(NSNotification*) {
                  accessibilityChanged();
                }];
    // Not before, because AppKit then puts its own handlers in place.
    launchObserver_ = [NSNotificationCenter.defaultCenter
        addObserverForName:NSApplicationDidFinishLaunchingNotification
                    object:nil
                     queue:NSOperationQueue.mainQueue
                usingBlock:^(NSNotification*) {
                  listenForReopening();
                }];
}

AppKitWorkspace::~AppKitWorkspace() {
    [workspace_.notificationCenter removeObserver:accessibilityObserver_];
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

void AppKitWorkspace::openURL(std::string url, Completion completion) {
    constexpr auto doing = "Could not open the browser";
    NSURL* const address = [NSURL URLWithString:nsString(url)];
    // Anything else could start whatever program.
    if (address == nil || ![address.scheme.lowercaseString isEqualToString:@"https"]) {
        openings_.add(std::move(completion))
            .finish(tavrin::PlatformError(
                std::string(tavrin::posixErrorDomain),
                EINVAL,
                std::string(doing) + ": the address is not a valid https one"));
        return;
    }
    open(address, doing, std::move(completion));
}

void AppKitWorkspace::openSettings(SettingsPane pane, Completion completion) {
    open(
        [NSURL URLWithString:settingsURL(pane)],
        "Could not open the System Settings",
        std::move(completion));
}

void AppKitWorkspace::revealFile(std::string path, Completion completion) {
    const auto revealing = openings_.add(std::move(completion));
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        revealing.finish(tavrin::PlatformError::fromErrno(
            error ? error.value() : ENOENT, "Could not show the file"));
        return;
    }
    [workspace_ activateFileViewerSelectingURLs:@[ fileURL(path) ]];
    revealing.finish(std::nullopt);
}

std::optional<Workspace::RunningApplication>
AppKitWorkspace::runningCopy(const std::string& identifier) {
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

void AppKitWorkspace::activateCopy(const RunningApplication& application) {
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

std::unique_ptr<Workspace::Subscription>
AppKitWorkspace::onActivation(std::function<void()> activated) {
    return activated_.add(std::move(activated));
}

bool AppKitWorkspace::shouldReduceMotion() const {
    return workspace_.accessibilityDisplayShouldReduceMotion == YES;
}

std::unique_ptr<Workspace::Subscription>
AppKitWorkspace::onReduceMotionChange(std::function<void()> changed) {
    return motionChanged_.add(std::move(changed));
}

std::unique_ptr<Workspace::Subscription>
AppKitWorkspace::onTrayChange(std::function<void()> changed) {
    return trayChanged_.add(std::move(changed));
}

Workspace::ActivationPolicy AppKitWorkspace::activationPolicy() const {
    return
        [NSApplication.sharedApplication activationPolicy] == NSApplicationActivationPolicyRegular
            ? ActivationPolicy::Regular
            : ActivationPolicy::Accessory;
}

void AppKitWorkspace::setActivationPolicy(ActivationPolicy policy) {
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

void AppKitWorkspace::activate() {
    [NSApplication.sharedApplication activateIgnoringOtherApps:YES];
}

void AppKitWorkspace::scheduleRelaunch() {
    NSTask* const shell = [[NSTask alloc] init];
    shell.executableURL = fileURL("/bin/sh");
    shell.arguments = @[
        @"-c",
        nsString(relaunchScript),
        NSBundle.mainBundle.bundlePath,
        nsString(std::to_string(getpid())),
        @"/usr/bin/open"
    ];
    // Ignored when it fails, as the port has it.
    [shell launchAndReturnError:nil];
}

void AppKitWorkspace::terminate() {
    [NSApplication.sharedApplication terminate:nil];
}

bool AppKitWorkspace::isDebuggerAttached() const {
    return orvel::isDebuggerAttached();
}

void AppKitWorkspace::open(NSURL* url, std::string doing, Completion completion) {
    const auto opening = openings_.add(std::move(completion));
    [workspace_ openURL:url
            configuration:[NSWorkspaceOpenConfiguration configuration]
        completionHandler:^(NSRunningApplication*, NSError* error) {
          if (error == nil) {
              opening.finish(std::nullopt);
          } else {
              opening.finish(failure(doing, platformError(error)));
          }
        }];
}

void AppKitWorkspace::listenForCopies() {
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

void AppKitWorkspace::listenForReopening() {
    reopenHandler_ = [[OrvelReopenHandler alloc] initWithCallback:[this] {
        activated_.call();
    }];
    [[NSAppleEventManager sharedAppleEventManager] setEventHandler:reopenHandler_
                                                       andSelector:@selector(handleReopen:
                                                                           withReplyEvent:)
                                                     forEventClass:kCoreEventClass
                                                        andEventID:kAEReopenApplication];
}

void AppKitWorkspace::accessibilityChanged() {
    // Told of all the settings of that kind.
    const bool reducesMotion = shouldReduceMotion();
    if (std::exchange(reducesMotion_, reducesMotion) != reducesMotion) {
        motionChanged_.call();
    }
}

} // namespace orvel
