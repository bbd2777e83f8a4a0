// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/update/SparkleUpdater.h"

#include "platform/UpdateObserver.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Sparkle/Sparkle.h>

#include <cassert>
#include <utility>

/// Sparkle's methods are optional, so a misspelt one would silently never be called. Required here,
/// the compiler reports a missing one.
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
- (nonnull instancetype)initWithObserver:(orvel::UpdateObserver&)observer
                                 feedURL:(nonnull NSString*)feedURL;
/// Sparkle may still call while it is released.
- (void)forgetObserver;
@end

namespace {

orvel::SoftwareUpdate updateOf(SUAppcastItem* item) {
    orvel::SoftwareUpdate update;
    update.version = orvel::utf8(item.versionString);
    update.displayVersion = orvel::utf8(item.displayVersionString);
    // Leave out the notes, which may be HTML. Sparkle's window shows them.
    update.length = item.contentLength;
    return update;
}

} // namespace

@implementation OrvelSparkleDelegate {
    orvel::UpdateObserver* _observer;
    NSString* _feedURL;
}

- (instancetype)initWithObserver:(orvel::UpdateObserver&)observer feedURL:(NSString*)feedURL {
    if ((self = [super init])) {
        _observer = &observer;
        _feedURL = [feedURL copy];
    }
    return self;
}

- (void)forgetObserver {
    _observer = nullptr;
}

- (nullable NSString*)feedURLStringForUpdater:(SPUUpdater*)updater {
    return _feedURL;
}

- (void)updater:(SPUUpdater*)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(nullable NSError*)error {
    if (_observer != nullptr) {
        _observer->checkFinished();
    }
}

- (BOOL)supportsGentleScheduledUpdateReminders {
    return _observer != nullptr && _observer->wantsGentleOffers();
}

- (void)standardUserDriverWillHandleShowingUpdate:(BOOL)handleShowingUpdate
                                        forUpdate:(SUAppcastItem*)update
                                            state:(SPUUserUpdateState*)state {
    if (_observer != nullptr) {
        _observer->updateWillBeOffered(updateOf(update), state.userInitiated == YES);
    }
}

- (void)standardUserDriverDidReceiveUserAttentionForUpdate:(SUAppcastItem*)update {
    if (_observer != nullptr) {
        _observer->updateWasSeen(updateOf(update));
    }
}

@end

namespace orvel {

SparkleUpdater::SparkleUpdater() = default;

SparkleUpdater::~SparkleUpdater() {
    stop();
}

void SparkleUpdater::start(Feed feed, UpdateObserver& observer, UpdatePresenter&) {
    assert(controller_ == nil);
    NSString* const key = nsString(feed.publicKey);
    if (![key isEqual:[NSBundle.mainBundle objectForInfoDictionaryKey:@"SUPublicEDKey"]]) {
        return;
    }
    observer_ = &observer;
    sparkleDelegate_ = [[OrvelSparkleDelegate alloc] initWithObserver:observer
                                                              feedURL:nsString(feed.url)];
    controller_ = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                                updaterDelegate:sparkleDelegate_
                                                             userDriverDelegate:sparkleDelegate_];
}

void SparkleUpdater::stop() {
    // Drop pending saves, so that the next observer does not get this one's choices.
    saves_ = {};
    [sparkleDelegate_ forgetObserver];
    controller_ = nil;
    sparkleDelegate_ = nil;
    observer_ = nullptr;
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
        if (observer_ != nullptr) {
            observer_->choiceSaved(std::nullopt);
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
