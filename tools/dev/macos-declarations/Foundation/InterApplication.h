// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <CoreServices/CoreServices.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN
MAC_API(10.0)
@interface NSTask : NSObject
- (instancetype)init NS_DESIGNATED_INITIALIZER;
@property(nullable, copy) NSURL* executableURL MAC_API(10.13);
@property(nullable, copy) NSArray<NSString*>* arguments;
- (BOOL)launchAndReturnError:(out NSError* _Nullable* _Nullable)error MAC_API(10.13);
@end

MAC_API(10.0)
@interface NSDistributedNotificationCenter : NSNotificationCenter
+ (NSDistributedNotificationCenter*)defaultCenter;
- (void)postNotificationName:(NSNotificationName)name
                      object:(nullable NSString*)object
                    userInfo:(nullable NSDictionary*)userInfo
          deliverImmediately:(BOOL)deliverImmediately;
@end

MAC_API(10.0)
@interface NSAppleEventDescriptor : NSObject <NSCopying, NSSecureCoding>
@end

MAC_API(10.0)
@interface NSAppleEventManager : NSObject
+ (NSAppleEventManager*)sharedAppleEventManager;
- (void)setEventHandler:(id)handler
            andSelector:(SEL)handleEventSelector
          forEventClass:(AEEventClass)eventClass
             andEventID:(AEEventID)eventID;
- (void)removeEventHandlerForEventClass:(AEEventClass)eventClass andEventID:(AEEventID)eventID;
@end
NS_ASSUME_NONNULL_END
