// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <Foundation/Foundation.h>
NS_ASSUME_NONNULL_BEGIN
typedef NS_ENUM(NSInteger, SMAppServiceStatus) {
    SMAppServiceStatusNotRegistered = 0,
    SMAppServiceStatusEnabled = 1,
    SMAppServiceStatusRequiresApproval = 2,
    SMAppServiceStatusNotFound = 3,
};
MAC_API(13.0) @interface SMAppService : NSObject
@property(class, readonly) SMAppService* mainAppService;
- (BOOL)registerAndReturnError:(NSError* _Nullable* _Nullable)error;
- (BOOL)unregisterAndReturnError:(NSError* _Nullable* _Nullable)error;
@property(readonly) SMAppServiceStatus status;
+ (void)openSystemSettingsLoginItems;
@end
NS_ASSUME_NONNULL_END
