// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/update/SparkleUpdater.h"

#include "platform/macos/support/FoundationConversions.h"

#import <Sparkle/Sparkle.h>

#include <cassert>
#include <utility>

/// All of Sparkle's methods are optional, so that a misspelt one would never be called and nobody
/// the wiser. Of these, the compiler insists on every one.
@protocol OrvelSparkleCallbacks <SPUUpdaterDelegate, SPUStandardUserDriverDelegate>
@required
@property(nonatomic, readonly) BOOL supportsGentleScheduledUpdateReminders;
- (nullable NSString*)feedURLStringForUpdater:(nonnull SPUUpdater*)updater;
- (void)updater:(nonnull SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error;
- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(nonnull SUAppcastItem*)update
                                            state:(nonnull SPUUserUpdateState*)state;
- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(nonnull SUAppcastItem*)update;
@end

@interface OrvelSparkleDelegate : NSObject <OrvelSparkleCallbacks>
- (nonnull instancetype)initWithDelegate:(orvel::SoftwareUpdater::Delegate&)delegate
                                 feedURL:(nonnull NSString*)feedURL;
/// Sparkle may call once more while it goes.
- (void)forgetDelegate;
@end

namespace {

orvel::SoftwareUpdate updateOf(SUAppcastItem* item) {
    orvel::SoftwareUpdate update;
    update.version = orvel::utf8(item.versionString);
    update.displayVersion = orvel::utf8(item.displayVersionString);
    // The notes may be HTML; Sparkle's window shows them.
    update.length = item.contentLength;
    return update;
}

} // namespace

@implementation OrvelSparkleDelegate {
    orvel::SoftwareUpdater::Delegate* _delegate;
    NSString* _feedURL;
}

- (instancetype)initWithDelegate:(orvel::SoftwareUpdater::Delegate&)delegate
                         feedURL:(NSString*)feedURL {
    if ((self = [super init])) {
        _delegate = &delegate;
        _feedURL = [feedURL copy];
    }
    return self;
}

- (void)forgetDelegate {
    _delegate = nullptr;
}

- (nullable NSString*)feedURLStringForUpdater:(SPUUpdater*)updater {
    return _feedURL;
}

- (void)updater:(SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error {
    if (_delegate != nullptr) {
        _delegate->updaterDidFinishUpdateCheck();
    }
}

- (BOOL)supportsGentleScheduledUpdateReminders {
    return _delegate != nullptr && _delegate->supportsGentleScheduledUpdateReminders();
}

- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state {
    if (_delegate != nullptr) {
        _delegate->standardUserDriverWillHandleShowingUpdate(
            updateOf(update), state.userInitiated == YES);
    }
}

- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update {
    if (_delegate != nullptr) {
        _delegate->standardUserDriverDidReceiveUserAttention(updateOf(update));
    }
}

@end

namespace orvel {

SparkleUpdater::SparkleUpdater() = default;

SparkleUpdater::~SparkleUpdater() {
    stop();
}

void SparkleUpdater::start(Feed feed, Delegate& delegate, UserDriver&) {
    assert(controller_ == nil);
    NSString* const key = nsString(feed.publicKey);
    if (![key isEqual:[NSBundle.mainBundle objectForInfoDictionaryKey:@"SUPublicEDKey"]]) {
        return;
    }
    delegate_ = &delegate;
    sparkleDelegate_ = [[OrvelSparkleDelegate alloc] initWithDelegate:delegate
                                                              feedURL:nsString(feed.url)];
    controller_ = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                                updaterDelegate:sparkleDelegate_
                                                             userDriverDelegate:sparkleDelegate_];
}

void SparkleUpdater::stop() {
    // Whoever starts next must not be told what was saved for this one.
    saves_ = {};
    [sparkleDelegate_ forgetDelegate];
    controller_ = nil;
    sparkleDelegate_ = nil;
    delegate_ = nullptr;
}

void SparkleUpdater::checkForUpdates() {
    [controller_ checkForUpdates:nil];
}

bool SparkleUpdater::automaticallyChecksForUpdates() const {
    return controller_.updater.automaticallyChecksForUpdates == YES;
}

void SparkleUpdater::setAutomaticallyChecksForUpdates(bool isAutomatic) {
    controller_.updater.automaticallyChecksForUpdates = isAutomatic ? YES : NO;
    const auto save = saves_.add([this] {
        if (delegate_ != nullptr) {
            delegate_->updaterDidSaveChoice(std::nullopt);
        }
    });
    save.finish();
}

std::optional<tavrin::Date> SparkleUpdater::lastUpdateCheckDate() const {
    NSDate* date = controller_.updater.lastUpdateCheckDate;
    if (date == nil) {
        return std::nullopt;
    }
    return dateOf(date);
}

} // namespace orvel
