// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <Foundation/Foundation.h>
#include <Security/SecProtocolTypes.h>

NS_ASSUME_NONNULL_BEGIN
MAC_API(10.5)
@interface NSHashTable<ObjectType> : NSObject <NSCopying, NSSecureCoding, NSFastEnumeration>
+ (NSHashTable<ObjectType>*)weakObjectsHashTable MAC_API(10.8);
- (void)addObject:(nullable ObjectType)object;
- (void)removeObject:(nullable ObjectType)object;
@property(readonly, copy) NSArray<ObjectType>* allObjects;
@end

typedef NS_ENUM(NSUInteger, NSURLRequestCachePolicy) {
    NSURLRequestUseProtocolCachePolicy = 0,
    NSURLRequestReloadIgnoringLocalCacheData = 1,
};
MAC_API(10.2)
@interface NSURLRequest : NSObject <NSSecureCoding, NSCopying, NSMutableCopying>
+ (instancetype)requestWithURL:(NSURL*)URL;
@property(nullable, readonly, copy) NSURL* URL;
@end
MAC_API(10.2)
@interface NSMutableURLRequest : NSURLRequest
@property NSURLRequestCachePolicy cachePolicy;
@property NSTimeInterval timeoutInterval;
@property BOOL HTTPShouldHandleCookies;
@property(copy) NSString* HTTPMethod;
@property(nullable, copy) NSData* HTTPBody;
- (void)setValue:(nullable NSString*)value forHTTPHeaderField:(NSString*)field;
- (void)addValue:(NSString*)value forHTTPHeaderField:(NSString*)field;
@end
MAC_API(10.2)
@interface NSURLResponse : NSObject <NSSecureCoding, NSCopying>
@property(readonly) long long expectedContentLength;
@end
MAC_API(10.2)
@interface NSHTTPURLResponse : NSURLResponse
@property(readonly) NSInteger statusCode;
@end

typedef struct __SecTrust* SecTrustRef;
MAC_API(10.2)
@interface NSURLProtectionSpace : NSObject <NSSecureCoding, NSCopying>
@property(readonly, copy) NSString* host;
@property(readonly, copy) NSString* authenticationMethod;
@property(nullable, readonly) SecTrustRef serverTrust MAC_API(10.6);
@end
STUB_EXTERN NSString* const NSURLAuthenticationMethodServerTrust MAC_API(10.6);
MAC_API(10.2)
@interface NSURLCredential : NSObject <NSSecureCoding, NSCopying>
+ (NSURLCredential*)credentialForTrust:(SecTrustRef)trust MAC_API(10.6);
@end
MAC_API(10.2)
@interface NSURLAuthenticationChallenge : NSObject <NSSecureCoding>
@property(readonly, copy) NSURLProtectionSpace* protectionSpace;
@end

MAC_API(10.2)
@interface NSURLCache : NSObject
@end
MAC_API(10.2)
@interface NSURLCredentialStorage : NSObject
@end
typedef NS_ENUM(NSUInteger, NSHTTPCookieAcceptPolicy) {
    NSHTTPCookieAcceptPolicyAlways,
    NSHTTPCookieAcceptPolicyNever,
};
MAC_API(10.2)
@interface NSHTTPCookieStorage : NSObject
@end

MAC_API(10.9)
@interface NSURLSessionConfiguration : NSObject <NSCopying>
@property(class, readonly, strong) NSURLSessionConfiguration* defaultSessionConfiguration;
@property(class, readonly, strong) NSURLSessionConfiguration* ephemeralSessionConfiguration;
@property NSURLRequestCachePolicy requestCachePolicy;
@property NSTimeInterval timeoutIntervalForRequest;
@property NSTimeInterval timeoutIntervalForResource;
@property BOOL waitsForConnectivity MAC_API(10.13);
@property tls_protocol_version_t TLSMinimumSupportedProtocolVersion MAC_API(10.15);
@property BOOL HTTPShouldUsePipelining;
@property BOOL HTTPShouldSetCookies;
@property NSHTTPCookieAcceptPolicy HTTPCookieAcceptPolicy;
@property(nullable, copy) NSDictionary* HTTPAdditionalHeaders;
@property NSInteger HTTPMaximumConnectionsPerHost;
@property(nullable, retain) NSHTTPCookieStorage* HTTPCookieStorage;
@property(nullable, retain) NSURLCredentialStorage* URLCredentialStorage;
@property(nullable, retain) NSURLCache* URLCache;
- (instancetype)init MAC_DEPRECATED(10.9, 10.15, "use a class property");
@end

@class NSURLSession, NSURLSessionTask, NSURLSessionDataTask;
typedef NS_ENUM(NSInteger, NSURLSessionAuthChallengeDisposition) {
    NSURLSessionAuthChallengeUseCredential = 0,
    NSURLSessionAuthChallengePerformDefaultHandling = 1,
    NSURLSessionAuthChallengeCancelAuthenticationChallenge = 2,
    NSURLSessionAuthChallengeRejectProtectionSpace = 3,
};
typedef NS_ENUM(NSInteger, NSURLSessionResponseDisposition) {
    NSURLSessionResponseCancel = 0,
    NSURLSessionResponseAllow = 1,
};
MAC_API(10.9)
@protocol NSURLSessionDelegate <NSObject>
@optional
- (void)URLSession:(NSURLSession*)session didBecomeInvalidWithError:(nullable NSError*)error;
- (void)URLSession:(NSURLSession*)session
    didReceiveChallenge:(NSURLAuthenticationChallenge*)challenge
      completionHandler:(void (^)(
                            NSURLSessionAuthChallengeDisposition disposition,
                            NSURLCredential* _Nullable credential))completionHandler;
@end
MAC_API(10.9)
@protocol NSURLSessionTaskDelegate <NSURLSessionDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest* _Nullable))completionHandler;
- (void)URLSession:(NSURLSession*)session
                    task:(NSURLSessionTask*)task
    didCompleteWithError:(nullable NSError*)error;
@end
MAC_API(10.9)
@protocol NSURLSessionDataDelegate <NSURLSessionTaskDelegate>
@optional
- (void)URLSession:(NSURLSession*)session
              dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveResponse:(NSURLResponse*)response
     completionHandler:(void (^)(NSURLSessionResponseDisposition disposition))completionHandler;
- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveData:(NSData*)data;
@end
MAC_API(10.9)
@interface NSURLSession : NSObject
+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration
                                 delegate:(nullable id<NSURLSessionDelegate>)delegate
                            delegateQueue:(nullable NSOperationQueue*)queue;
@property(class, readonly, strong) NSURLSession* sharedSession;
- (void)finishTasksAndInvalidate;
- (void)invalidateAndCancel;
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request;
- (instancetype)init MAC_DEPRECATED(10.9, 10.15, "use a class method");
@end
MAC_API(10.9)
@interface NSURLSessionTask : NSObject <NSCopying>
@property(nullable, readonly, copy) NSURLResponse* response;
- (void)cancel;
- (void)resume;
@end
MAC_API(10.9)
@interface NSURLSessionDataTask : NSURLSessionTask
@end
STUB_EXTERN const NSErrorDomain NSURLErrorDomain MAC_API(10.0);
NS_ASSUME_NONNULL_END
