// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealLoginItem.h"

#include "platform/macos/desktop/AppServiceLoginItem.h"

#import <ServiceManagement/ServiceManagement.h>

/// Behaves like the system's service of an unregistered application, with the documented errors.
@interface OrvelTestAppService : NSObject
@property(readonly) SMAppServiceStatus status;
@end

@implementation OrvelTestAppService

- (instancetype)init {
    if ((self = [super init])) {
        _status = SMAppServiceStatusNotFound;
    }
    return self;
}

- (BOOL)registerAndReturnError:(NSError**)error {
    if (_status == SMAppServiceStatusEnabled) {
        *error = [NSError errorWithDomain:@"SMAppServiceErrorDomain" code:12 userInfo:nil];
        return NO;
    }
    _status = SMAppServiceStatusEnabled;
    return YES;
}

- (BOOL)unregisterAndReturnError:(NSError**)error {
    if (_status != SMAppServiceStatusEnabled) {
        *error = [NSError errorWithDomain:@"SMAppServiceErrorDomain" code:6 userInfo:nil];
        return NO;
    }
    _status = SMAppServiceStatusNotRegistered;
    return YES;
}

@end

namespace orvel::test {

std::unique_ptr<LoginItem> makeRealLoginItem(const std::filesystem::path&) {
    const id service = [[OrvelTestAppService alloc] init];
    return std::make_unique<AppServiceLoginItem>(static_cast<SMAppService*>(service));
}

} // namespace orvel::test
