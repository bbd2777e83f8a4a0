// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <AppKit/AppKit.h>
NS_ASSUME_NONNULL_BEGIN
typedef NSWindow* ASPresentationAnchor;
@class ASWebAuthenticationSession;
STUB_EXTERN const NSErrorDomain ASWebAuthenticationSessionErrorDomain MAC_API(10.15);
typedef NS_ERROR_ENUM(ASWebAuthenticationSessionErrorDomain, ASWebAuthenticationSessionErrorCode){
    ASWebAuthenticationSessionErrorCodeCanceledLogin = 1,
    ASWebAuthenticationSessionErrorCodePresentationContextNotProvided = 2,
    ASWebAuthenticationSessionErrorCodePresentationContextInvalid = 3,
};
typedef void (^ASWebAuthenticationSessionCompletionHandler)(
    NSURL* _Nullable callbackURL, NSError* _Nullable error);
MAC_API(10.15) @protocol ASWebAuthenticationPresentationContextProviding<NSObject>
- (ASPresentationAnchor)presentationAnchorForWebAuthenticationSession:
    (ASWebAuthenticationSession*)session;
@end
MAC_API(10.15) @interface ASWebAuthenticationSession : NSObject
- (instancetype)initWithURL:(NSURL*)URL
          callbackURLScheme:(nullable NSString*)callbackURLScheme
          completionHandler:(ASWebAuthenticationSessionCompletionHandler)completionHandler
    MAC_DEPRECATED(10.15, 14.4, "use initWithURL:callback:completionHandler:");
@property(nonatomic, weak, nullable) id<ASWebAuthenticationPresentationContextProviding>
    presentationContextProvider;
@property(nonatomic) BOOL prefersEphemeralWebBrowserSession;
@property(nonatomic, readonly) BOOL canStart MAC_API(10.15.4);
- (BOOL)start;
- (void)cancel;
+ (instancetype)new NS_UNAVAILABLE;
- (instancetype)init NS_UNAVAILABLE;
@end
NS_ASSUME_NONNULL_END
