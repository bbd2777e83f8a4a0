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
@protocol SPUUpdaterDelegate <NSObject>
@optional
- (nullable NSString*)feedURLStringForUpdater:(SPUUpdater*)updater;
- (void)updater:(SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error;
@end
@interface SUAppcastItem : NSObject
@property(copy, readonly) NSString* versionString;
@property(copy, readonly) NSString* displayVersionString;
@property(readonly) uint64_t contentLength;
@end
@interface SPUUserUpdateState : NSObject
- (instancetype)init NS_UNAVAILABLE;
@property(nonatomic, readonly) BOOL userInitiated;
@end
@interface SPUUpdater : NSObject
- (instancetype)init NS_UNAVAILABLE;
@property(nonatomic) BOOL automaticallyChecksForUpdates;
@property(nonatomic, readonly, copy, nullable) NSDate* lastUpdateCheckDate;
@property(nonatomic, readonly) BOOL canCheckForUpdates;
- (BOOL)startUpdater:(NSError* __autoreleasing*)error;
- (void)checkForUpdates;
@end
@protocol SPUStandardUserDriverDelegate <NSObject>
@optional
@property(nonatomic, readonly) BOOL supportsGentleScheduledUpdateReminders;
- (BOOL)standardUserDriverShouldHandleShowingScheduledUpdate:(SUAppcastItem*)update
                                         andInImmediateFocus:(BOOL)immediateFocus;
- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state;
- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update;
- (void)standardUserDriverWillFinishUpdateSession;
@end
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
