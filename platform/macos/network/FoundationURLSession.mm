// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/FoundationURLSession.h"

#include "core/Errors.h"
#include "platform/URLRequests.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Security/Security.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

using tavrin::URLErrorCode;
using Call = PendingCalls<URLResult>::Call;

[[noreturn]] void failToRead(const std::filesystem::path& file, int code) {
    throw tavrin::PlatformError(
        std::string(tavrin::posixErrorDomain),
        code,
        "Could not read the certificates in " + file.string() + ".");
}

void appendCertificates(NSMutableArray* certificates, const std::filesystem::path& file) {
    constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----";
    constexpr std::string_view end = "-----END CERTIFICATE-----";
    NSError* error = nil;
    NSData* const data = [NSData dataWithContentsOfURL:fileURL(file) options:0 error:&error];
    if (data == nil) {
        throw platformError(error);
    }
    const std::string content(static_cast<const char*>(data.bytes), data.length);
    std::size_t position = content.find(begin);
    if (position == std::string::npos) {
        failToRead(file, EBADMSG);
    }
    for (; position != std::string::npos; position = content.find(begin, position)) {
        position += begin.size();
        const std::size_t after = content.find(end, position);
        if (after == std::string::npos) {
            failToRead(file, EBADMSG);
        }
        NSData* const bytes = [[NSData alloc]
            initWithBase64EncodedString:nsString(content.substr(position, after - position))
                                options:NSDataBase64DecodingIgnoreUnknownCharacters];
        if (bytes == nil) {
            failToRead(file, EBADMSG);
        }
        const id certificate =
            (__bridge_transfer id)SecCertificateCreateWithData(nullptr, (__bridge CFDataRef)bytes);
        if (certificate == nil) {
            failToRead(file, EBADMSG);
        }
        [certificates addObject:certificate];
        position = after;
    }
}

NSArray* certificatesIn(const std::vector<std::filesystem::path>& files) {
    NSMutableArray* const certificates = [NSMutableArray array];
    for (const std::filesystem::path& file : files) {
        appendCertificates(certificates, file);
    }
    return certificates;
}

/// Nil for an invalid address, even if the system would repair it.
NSURL* urlOf(const std::string& text) {
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char character) {
        return character > ' ' && character < 0x7F;
    });
    NSURL* const url = isPlain ? [NSURL URLWithString:nsString(text)] : nil;
    const bool hasHost = url.host.length > 0 && url.user == nil && url.password == nil;
    return hasHost && url.port.integerValue <= 0xFFFF ? url : nil;
}

/// Why the request cannot be sent.
std::optional<tavrin::URLError> refusal(const URLRequest& request) {
    if (request.url.rfind("https://", 0) != 0) {
        return tavrin::urlError(URLErrorCode::UnsupportedURL);
    }
    if (urlOf(request.url) == nil) {
        return tavrin::urlError(URLErrorCode::BadURL);
    }
    return headerError(request);
}

/// At most one day. A limit below the system's minimum is enforced by our timers.
NSTimeInterval secondsOf(const URLRequest& request) {
    return std::clamp(request.timeout.count(), 0.001, 86400.0);
}

NSURLRequest* systemRequest(const URLRequest& request) {
    NSURL* const url = urlOf(request.url);
    NSMutableURLRequest* const result = [NSMutableURLRequest requestWithURL:url];
    result.HTTPMethod = nsString(request.method);
    result.cachePolicy = NSURLRequestReloadIgnoringLocalCacheData;
    result.HTTPShouldHandleCookies = NO;
    // This limits the time without data. One second more, so that our own limit takes effect first.
    result.timeoutInterval = secondsOf(request) + 1;
    for (const auto& [name, value] : request.headers) {
        [result setValue:nsString(value) forHTTPHeaderField:nsString(name)];
    }
    if (request.body) {
        result.HTTPBody = [NSData dataWithBytes:request.body->data() length:request.body->size()];
    }
    return result;
}

NSURLSessionConfiguration* configuration() {
    NSURLSessionConfiguration* const result =
        NSURLSessionConfiguration.ephemeralSessionConfiguration;
    result.URLCache = nil;
    result.HTTPCookieStorage = nil;
    result.HTTPShouldSetCookies = NO;
    result.HTTPCookieAcceptPolicy = NSHTTPCookieAcceptPolicyNever;
    result.URLCredentialStorage = nil;
    result.waitsForConnectivity = NO;
    result.HTTPMaximumConnectionsPerHost = 1;
    result.TLSMinimumSupportedProtocolVersion = tls_protocol_version_TLSv12;
    return result;
}

/// The state of one request. Used on the queue of the request.
struct Progress {
    Progress(Call ofExchange, URLRequest request)
        : call(std::move(ofExchange)), receiver(std::move(request.receiver)) {}
    ~Progress() { tavrin::wipe(response.body); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Returns false if the reply is too large.
    bool take(std::string_view piece) {
        if (response.status == 200 && receiver) {
            return receiver(piece);
        }
        if (response.body.size() + piece.size() > URLSession::maximumReplyBytes) {
            return false;
        }
        response.body.append(piece);
        return true;
    }

    Call call;
    std::function<bool(std::string_view)> receiver;
    URLResponse response;
    /// Why we cancelled the request.
    std::optional<URLErrorCode> reason;
};

} // namespace

} // namespace orvel

/// The delegate of one request.
@interface OrvelExchange : NSObject <NSURLSessionDataDelegate>
- (instancetype)initWithProgress:(std::shared_ptr<orvel::Progress>)progress
                         anchors:(NSArray*)anchors;
@end

@implementation OrvelExchange {
    std::shared_ptr<orvel::Progress> progress_;
    NSArray* anchors_;
}

- (instancetype)initWithProgress:(std::shared_ptr<orvel::Progress>)progress
                         anchors:(NSArray*)anchors {
    self = [super init];
    if (self != nil) {
        progress_ = std::move(progress);
        anchors_ = anchors;
    }
    return self;
}

- (void)URLSession:(NSURLSession*)session
    didReceiveChallenge:(NSURLAuthenticationChallenge*)challenge
      completionHandler:
          (void (^)(NSURLSessionAuthChallengeDisposition, NSURLCredential*))completionHandler {
    NSURLProtectionSpace* const space = challenge.protectionSpace;
    const SecTrustRef trust = space.serverTrust;
    if (anchors_.count > 0 && trust != nullptr &&
        [space.authenticationMethod isEqualToString:NSURLAuthenticationMethodServerTrust]) {
        // Trust these in addition to the system's certificates. The checks of the server's name and
        // the dates still apply.
        SecTrustSetAnchorCertificates(trust, (__bridge CFArrayRef)anchors_);
        SecTrustSetAnchorCertificatesOnly(trust, 0);
        if (SecTrustEvaluateWithError(trust, nullptr)) {
            completionHandler(
                NSURLSessionAuthChallengeUseCredential, [NSURLCredential credentialForTrust:trust]);
            return;
        }
    }
    // The default handling refuses untrusted servers and reports the reason.
    completionHandler(NSURLSessionAuthChallengePerformDefaultHandling, nil);
}

- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))completionHandler {
    progress_->response.redirect = orvel::utf8(request.URL.absoluteString);
    // The redirect itself is then the reply.
    completionHandler(nil);
}

- (void)URLSession:(NSURLSession*)session
              dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveResponse:(NSURLResponse*)response
     completionHandler:(void (^)(NSURLSessionResponseDisposition))completionHandler {
    if ([response isKindOfClass:[NSHTTPURLResponse class]]) {
        progress_->response.status =
            static_cast<int>(static_cast<NSHTTPURLResponse*>(response).statusCode);
    }
    completionHandler(NSURLSessionResponseAllow);
}

- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)dataTask
    didReceiveData:(NSData*)data {
    orvel::Progress* const progress = progress_.get();
    [data enumerateByteRangesUsingBlock:^(const void* bytes, NSRange range, BOOL* stop) {
      // Data that has already arrived is still delivered after cancelling.
      if (progress->reason || !progress->take({static_cast<const char*>(bytes), range.length})) {
          progress->reason =
              progress->reason.value_or(tavrin::URLErrorCode::DataLengthExceedsMaximum);
          *stop = YES;
          [dataTask cancel];
      }
    }];
}

- (void)URLSession:(NSURLSession*)session
                    task:(NSURLSessionTask*)task
    didCompleteWithError:(NSError*)error {
    orvel::Progress& progress = *progress_;
    if (progress.reason) {
        progress.call.finish(tavrin::urlError(*progress.reason));
    } else if (error != nil) {
        progress.call.finish(orvel::urlError(error));
    } else {
        progress.call.finish(std::move(progress.response));
    }
    // The system may keep this object, so release the receiver now.
    progress.receiver = nullptr;
}

@end

namespace orvel {

class FoundationURLSession::FoundationTask final : public Task {
public:
    FoundationTask(Call call, NSURLSessionTask* task) : call_(std::move(call)), task_(task) {}

    void cancel() override {
        if (call_.finishInstead(tavrin::urlError(URLErrorCode::Cancelled))) {
            [task_ cancel];
        }
    }

private:
    Call call_;
    NSURLSessionTask* task_;
};

FoundationURLSession::FoundationURLSession(
    const std::vector<std::filesystem::path>& extraCertificates)
    : anchors_(certificatesIn(extraCertificates)), sessions_([NSHashTable weakObjectsHashTable]) {}

FoundationURLSession::~FoundationURLSession() {
    for (NSURLSession* const session in sessions_.allObjects) {
        [session invalidateAndCancel];
    }
}

std::unique_ptr<URLSession::Task>
FoundationURLSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    const Call call = exchanges_.add(std::move(completion));
    @autoreleasepool {
        if (auto error = refusal(request)) {
            wipe(request);
            call.finish(std::move(*error));
            return std::make_unique<FoundationTask>(call, nil);
        }
        const dispatch_queue_t queue =
            dispatch_queue_create("orvel.exchange", DISPATCH_QUEUE_SERIAL);
        NSOperationQueue* const delegateQueue = [[NSOperationQueue alloc] init];
        delegateQueue.maxConcurrentOperationCount = 1;
        delegateQueue.underlyingQueue = queue;

        NSURLRequest* const sent = systemRequest(request);
        const NSTimeInterval limit = secondsOf(request);
        wipe(request);
        const auto progress = std::make_shared<Progress>(call, std::move(request));
        NSURLSession* const session =
            [NSURLSession sessionWithConfiguration:configuration()
                                          delegate:[[OrvelExchange alloc] initWithProgress:progress
                                                                                   anchors:anchors_]
                                     delegateQueue:delegateQueue];
        [sessions_ addObject:session];
        NSURLSessionDataTask* const task = [session dataTaskWithRequest:sent];
        [task resume];
        // The session ends with its only task.
        [session finishTasksAndInvalidate];

        // The system's limit only covers the time without data, and it is inexact.
        const std::weak_ptr<Progress> watched = progress;
        __weak NSURLSessionTask* const watchedTask = task;
        const auto nanoseconds = static_cast<std::int64_t>(limit * 1e9);
        // One clock stops while the machine sleeps. The other one changes when the clock is set.
        for (const dispatch_time_t end :
             {dispatch_time(DISPATCH_TIME_NOW, nanoseconds),
              dispatch_walltime(nullptr, nanoseconds)}) {
            dispatch_after(end, queue, ^{
              if (const auto late = watched.lock(); late && !late->reason) {
                  late->reason = URLErrorCode::TimedOut;
                  [watchedTask cancel];
              }
            });
        }
        return std::make_unique<FoundationTask>(call, task);
    }
}

} // namespace orvel
