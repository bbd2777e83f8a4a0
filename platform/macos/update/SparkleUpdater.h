// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"
#include "platform/macos/support/PendingCalls.h"

@class OrvelSparkleDelegate;
@class SPUStandardUpdaterController;

namespace orvel {

/// Sparkle with its standard windows, in which the user answers: the presenter is never called, and
/// `choose` and `noteUserAttention` do nothing.
///
/// Sparkle verifies the feed and the downloads only with the key in the main bundle's information
/// property list, which demands both; for a feed with another key it is never started. It checks
/// once a day by default and saves its settings in the user defaults, without reporting failures.
/// The settings are available only while started.
///
/// Sparkle has no call that stops it: `stop` releases its updater and ignores later callbacks. An
/// open window of Sparkle, its download, and the separate installer process, which installs an
/// update when this process ends, continue.
class SparkleUpdater final : public SoftwareUpdater {
public:
    SparkleUpdater();
    ~SparkleUpdater() override;

    void start(Feed feed, UpdateObserver& observer, UpdatePresenter& presenter) override;
    void stop() override;
    void checkForUpdates() override;
    void choose(Choice) override {}
    void noteUserAttention() override {}
    [[nodiscard]] bool automaticallyChecksForUpdates() const override;
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override;
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override;

private:
    /// Sparkle has only a weak reference to it.
    OrvelSparkleDelegate* sparkleDelegate_;
    SPUStandardUpdaterController* controller_;
    UpdateObserver* observer_ = nullptr;
    PendingCalls<> saves_;
};

} // namespace orvel
