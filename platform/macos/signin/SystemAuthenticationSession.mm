// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/signin/SystemAuthenticationSession.h"

#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#import <AuthenticationServices/AuthenticationServices.h>

#include <utility>

@interface OrvelPresentationAnchor : NSObject <ASWebAuthenticationPresentationContextProviding>
@property(nonatomic, readonly, strong) NSWindow* window;
@end

@implementation OrvelPresentationAnchor

- (instancetype)init {
    if ((self = [super init])) {
        // Create the application object, which windows need.
        static_cast<void>(NSApplication.sharedApplication);
        _window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 1, 1)
                                              styleMask:NSWindowStyleMaskBorderless
                                                backing:NSBackingStoreBuffered
                                                  defer:NO];
        _window.alphaValue = 0;
        _window.releasedWhenClosed = NO;
    }
    return self;
}

- (ASPresentationAnchor)presentationAnchorForWebAuthenticationSession:
    (ASWebAuthenticationSession*)session {
    return self.window;
}

@end

namespace orvel {

namespace {

ASWebAuthenticationSession* systemSession(
    NSURL* url, NSString* scheme, SystemAuthenticationSession::CompletionHandler completion) {
    return [[ASWebAuthenticationSession alloc] initWithURL:url
                                         callbackURLScheme:scheme
                                         completionHandler:completion];
}

WebAuthenticationSession::Outcome outcomeOf(NSURL* callbackURL, NSError* error) {
    if (error != nil) {
        if ([error.domain isEqualToString:ASWebAuthenticationSessionErrorDomain] &&
            error.code == ASWebAuthenticationSessionErrorCodeCanceledLogin) {
            return WebAuthenticationSession::Cancelled();
        }
        return WebAuthenticationSession::Failed{utf8(error.localizedDescription)};
    }
    NSString* text = callbackURL.absoluteString;
    if (text == nil) {
        return WebAuthenticationSession::NoResponse();
    }
    return utf8(text);
}

} // namespace

class SystemAuthenticationSession::SheetAttempt final : public Attempt {
public:
    SheetAttempt(ASWebAuthenticationSession* session, Attempts::Call call)
        : session_(session), call_(std::move(call)) {}

    void cancel() override {
        // Finish the call first, because `cancel` may report another outcome before it returns.
        if (call_.finishInstead(Cancelled())) {
            [session_ cancel];
        }
    }

private:
    ASWebAuthenticationSession* session_;
    Attempts::Call call_;
};

SystemAuthenticationSession::SystemAuthenticationSession()
    : SystemAuthenticationSession(systemSession) {}

SystemAuthenticationSession::SystemAuthenticationSession(MakeSession makeSession)
    : makeSession_(std::move(makeSession)) {}

SystemAuthenticationSession::~SystemAuthenticationSession() {
    if (unfinished_ > 0) {
        [session_ cancel];
        [anchor_.window orderOut:nil];
    }
}

std::unique_ptr<WebAuthenticationSession::Attempt> SystemAuthenticationSession::start(
    std::string url, std::string callbackScheme, Screen, std::function<void(Outcome)> completion) {
    if (latest_) {
        SheetAttempt(session_, *latest_).cancel();
    }
    ++unfinished_;
    latest_ = attempts_.add([this, completion = std::move(completion)](Outcome outcome) {
        // A later attempt may still use the window.
        if (--unfinished_ == 0) {
            [anchor_.window orderOut:nil];
        }
        completion(std::move(outcome));
    });
    if (!open(url, callbackScheme, *latest_)) {
        latest_->finish(NotStarted());
    }
    return std::make_unique<SheetAttempt>(session_, *latest_);
}

bool SystemAuthenticationSession::open(
    const std::string& url, const std::string& callbackScheme, const Attempts::Call& attempt) {
    session_ = nil;
    NSURL* const address = [NSURL URLWithString:nsString(url)];
    // The framework throws for schemes other than http and https.
    if (address == nil || ![address.scheme.lowercaseString isEqualToString:@"https"]) {
        return false;
    }
    if (anchor_ == nil) {
        anchor_ = [[OrvelPresentationAnchor alloc] init];
    }
    [anchor_.window orderFrontRegardless];
    // Called on any thread, perhaps even if the start fails. Only the first result has an effect.
    const Attempts::Call call = attempt;
    session_ =
        makeSession_(address, nsString(callbackScheme), ^(NSURL* callbackURL, NSError* error) {
          call.finish(outcomeOf(callbackURL, error));
        });
    session_.presentationContextProvider = anchor_;
    session_.prefersEphemeralWebBrowserSession = NO;
    return [session_ start] == YES;
}

} // namespace orvel
