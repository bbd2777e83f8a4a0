// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWebAuthenticationSession.h"

#include "platform/macos/signin/SystemAuthenticationSession.h"
#include "platform/macos/support/FoundationConversions.h"

#import <AuthenticationServices/AuthenticationServices.h>

#include <functional>

/// Opens nothing. Ends like the system's session when the test says so.
@interface OrvelTestSession : ASWebAuthenticationSession
@property(nonatomic, copy) BOOL (^isStarted)(void);
@property(nonatomic, copy) void (^end)(NSURL*, NSError*);
@end

@implementation OrvelTestSession

- (BOOL)start {
    return self.isStarted();
}

- (void)cancel {
    // This result must be ignored.
    self.end(
        nil,
        [NSError errorWithDomain:ASWebAuthenticationSessionErrorDomain
                            code:ASWebAuthenticationSessionErrorCodePresentationContextInvalid
                        userInfo:nil]);
}

@end

namespace orvel::test {

namespace {

class SheetSubject final : public WebAuthenticationSubject {
public:
    WebAuthenticationSession& session() override { return *session_; }
    void destroySession() override { session_.reset(); }
    std::vector<std::string> pages() override { return pages_; }
    void removeBrowser() override { hasBrowser_ = false; }
    void callBack(const std::string& url) override {
        void (^const end)(NSURL*, NSError*) = latest_.end;
        NSURL* const address = [NSURL URLWithString:nsString(url)];
        // The system may call on any thread.
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
          end(address, nil);
        });
    }
    bool isOpenToAnyPage() override { return false; }

private:
    ASWebAuthenticationSession* makeSession(
        NSURL* url, NSString* scheme, SystemAuthenticationSession::CompletionHandler completion) {
        latest_ = [[OrvelTestSession alloc] initWithURL:url
                                      callbackURLScheme:scheme
                                      completionHandler:completion];
        latest_.end = completion;
        latest_.isStarted = ^BOOL {
          if (hasBrowser_) {
              pages_.push_back(utf8(url.absoluteString));
          }
          return hasBrowser_ ? YES : NO;
        };
        return latest_;
    }

    std::vector<std::string> pages_;
    bool hasBrowser_ = true;
    OrvelTestSession* latest_ = nil;
    std::unique_ptr<WebAuthenticationSession> session_ =
        std::make_unique<SystemAuthenticationSession>(
            [this](
                NSURL* url,
                NSString* scheme,
                SystemAuthenticationSession::CompletionHandler completion) {
                return makeSession(url, scheme, completion);
            });
};

} // namespace

std::unique_ptr<WebAuthenticationSubject> makeRealWebAuthenticationSession() {
    return std::make_unique<SheetSubject>();
}

} // namespace orvel::test
