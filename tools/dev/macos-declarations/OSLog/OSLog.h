// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <Foundation/Foundation.h>
NS_ASSUME_NONNULL_BEGIN
typedef NS_ENUM(NSInteger, OSLogStoreScope) {
    OSLogStoreSystem = 0,
    OSLogStoreCurrentProcessIdentifier = 1
};
typedef NS_OPTIONS(NSUInteger, OSLogEnumeratorOptions) { OSLogEnumeratorReverse = 0x01 };
typedef NS_ENUM(NSInteger, OSLogEntryLogLevel) {
    OSLogEntryLogLevelUndefined = 0,
    OSLogEntryLogLevelDebug = 1,
    OSLogEntryLogLevelInfo = 2,
    OSLogEntryLogLevelNotice = 3,
    OSLogEntryLogLevelError = 4,
    OSLogEntryLogLevelFault = 5,
};
MAC_API(10.15) @interface OSLogEntry : NSObject
@property(nonatomic, readonly, copy) NSDate* date;
@property(nonatomic, readonly, copy) NSString* composedMessage;
@end
MAC_API(10.15) @protocol OSLogEntryFromProcess
@property(nonatomic, readonly) pid_t processIdentifier;
@property(nonatomic, readonly) uint64_t threadIdentifier;
@end
MAC_API(10.15) @protocol OSLogEntryWithPayload
@property(nonatomic, readonly, copy) NSString* category;
@property(nonatomic, readonly, copy) NSString* subsystem;
@end
MAC_API(10.15) @interface OSLogEntryLog : OSLogEntry<OSLogEntryFromProcess, OSLogEntryWithPayload>
@property(nonatomic, readonly) OSLogEntryLogLevel level;
@end
MAC_API(10.15) @interface OSLogPosition : NSObject
@end
MAC_API(10.15) @interface OSLogEnumerator : NSEnumerator
@end
MAC_API(10.15) @interface OSLogStore : NSObject
+ (nullable instancetype)storeWithScope:(OSLogStoreScope)scope
                                  error:(NSError* _Nullable* _Nullable)error MAC_API(12.0);
- (nullable OSLogEnumerator*)entriesEnumeratorWithOptions:(OSLogEnumeratorOptions)options
                                                 position:(nullable OSLogPosition*)position
                                                predicate:(nullable NSPredicate*)predicate
                                                    error:(NSError* _Nullable* _Nullable)error;
- (OSLogPosition*)positionWithDate:(NSDate*)date;
@end
NS_ASSUME_NONNULL_END
