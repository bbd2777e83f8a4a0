// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <AppKit/AppKit.h>
NS_ASSUME_NONNULL_BEGIN
@class SUAppcastItem, SPUStandardUserDriver;
@protocol SPUUpdaterDelegate <NSObject>
@end
@interface SUAppcastItem : NSObject
@property(copy, readonly) NSString* versionString;
@property(copy, readonly) NSString* displayVersionString;
@end
@interface SPUUserUpdateState : NSObject
- (instancetype)init NS_UNAVAILABLE;
@property(nonatomic, readonly) BOOL userInitiated;
@end
@interface SPUUpdater : NSObject
@property(nonatomic) BOOL automaticallyChecksForUpdates;
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
