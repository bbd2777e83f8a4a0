// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <AppKit/AppKit.h>
NS_ASSUME_NONNULL_BEGIN
@class SUAppcastItem, SPUStandardUserDriver, SPUUpdater;
typedef NS_ENUM(NSInteger, SPUUpdateCheck) {
    SPUUpdateCheckUpdates = 0,
    SPUUpdateCheckUpdatesInBackground = 1,
    SPUUpdateCheckUpdateInformation = 2,
};
SPARKLE_API(2.0)
@protocol SPUUpdaterDelegate <NSObject>
@optional
- (nullable NSString*)feedURLStringForUpdater:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error;
@end
SPARKLE_API(2.0)
@interface SUAppcastItem : NSObject
@property(copy, readonly) NSString* versionString;
@property(copy, readonly) NSString* displayVersionString;
@property(readonly) uint64_t contentLength;
@end
SPARKLE_API(2.0)
@interface SPUUserUpdateState : NSObject
- (instancetype)init NS_UNAVAILABLE;
@property(nonatomic, readonly) BOOL userInitiated;
@end
SPARKLE_API(2.0)
@interface SPUUpdater : NSObject
- (instancetype)init NS_UNAVAILABLE;
@property(nonatomic) BOOL automaticallyChecksForUpdates;
@property(nonatomic, readonly, copy, nullable) NSDate* lastUpdateCheckDate;
@property(nonatomic, readonly) BOOL canCheckForUpdates;
- (BOOL)startUpdater:(NSError* __autoreleasing*)error;
- (void)checkForUpdates;
@end
SPARKLE_API(2.0)
@protocol SPUStandardUserDriverDelegate <NSObject>
@optional
@property(nonatomic, readonly) BOOL supportsGentleScheduledUpdateReminders SPARKLE_API(2.2);
- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)update
                                         andInImmediateFocus:(BOOL)immediateFocus SPARKLE_API(2.2);
- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state SPARKLE_API(2.2);
- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update SPARKLE_API(2.2);
- (void)standardUserDriverWillFinishUpdateSession SPARKLE_API(2.2);
@end
SPARKLE_API(2.0)
@interface SPUStandardUpdaterController : NSObject
@property(nonatomic, readonly) SPUUpdater* updater;
- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithStartingUpdater:(BOOL)startUpdater
                        updaterDelegate:(nullable id<SPUUpdaterDelegate>)updaterDelegate
                     userDriverDelegate:
                         (nullable id<SPUStandardUserDriverDelegate>)userDriverDelegate;
- (void)startUpdater;
- (void)checkForUpdates:(nullable id)sender;
@end
NS_ASSUME_NONNULL_END
