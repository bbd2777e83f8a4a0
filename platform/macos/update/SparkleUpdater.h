// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/SoftwareUpdater.h"
#include "platform/macos/support/PendingCalls.h"

@class OrvelSparkleDelegate;
@class SPUStandardUpdaterController;

namespace orvel {

/// Sparkle with its standard windows, which lead the user through everything: the user driver is
/// never called, so nothing is ever to be chosen, seen or cancelled through this object.
///
/// Sparkle verifies with the key in the main bundle's information property list and with no other:
/// for a feed with another key it is never started, and finds nothing. It keeps its settings in the
/// user defaults itself, and does not tell whether it could. Only while started are they to be had.
///
/// Sparkle has no call that stops it: `stop` lets go of its updater and hears no more of it. What
/// Sparkle keeps alive by itself goes on, such as a window that the user has open, its download,
/// and the installer, a process of its own that puts an update in place when this one ends.
class SparkleUpdater final : public SoftwareUpdater {
public:
    SparkleUpdater();
    ~SparkleUpdater() override;

    void start(Feed feed, Delegate& delegate, UserDriver& userDriver) override;
    void stop() override;
    void checkForUpdates() override;
    [[nodiscard]] bool automaticallyChecksForUpdates() const override;
    void setAutomaticallyChecksForUpdates(bool isAutomatic) override;
    [[nodiscard]] std::optional<tavrin::Date> lastUpdateCheckDate() const override;
    void choose(Choice) override {}
    void noteUserAttention() override {}
    void cancel() override {}

private:
    /// Sparkle holds it weakly.
    OrvelSparkleDelegate* sparkleDelegate_;
    SPUStandardUpdaterController* controller_;
    Delegate* delegate_ = nullptr;
    PendingCalls<> saves_;
};

} // namespace orvel
