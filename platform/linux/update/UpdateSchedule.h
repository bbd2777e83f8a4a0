// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/linux/support/WorkQueue.h"
#include "platform/linux/update/UpdateVersion.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tavrin {
class UserDefaults;
}

namespace orvel {

/// When the next update check is due, and the user's choices about checks. Both are kept in the
/// user defaults across launches.
///
/// Main thread. Changes are written on a separate thread, in their order, and logged when that
/// fails; the destructor waits for them. Borrows everything it is given.
class UpdateSchedule final {
public:
    static constexpr tavrin::Seconds checkInterval{86'400};
    /// After a check that failed or was cancelled.
    static constexpr tavrin::Seconds retryInterval{3'600};

    // The keys of the user defaults.
    static constexpr std::string_view automaticKey = "SUEnableAutomaticChecks";
    static constexpr std::string_view lastCheckKey = "SULastCheckTime";
    static constexpr std::string_view skippedKey = "SUSkippedVersion";

    /// Calls `check` when a scheduled check is due, and `choiceSaved` when a choice has been
    /// written, with the reason if that failed.
    UpdateSchedule(
        Clock& clock,
        tavrin::UserDefaults& defaults,
        LogStore& logStore,
        std::function<void()> check,
        std::function<void(const std::optional<std::string>& failure)> choiceSaved);

    /// Schedules the next check, unless checks are not automatic.
    void scheduleNext();
    void scheduleRetry() { schedule(retryInterval); }
    void stop() { timer_.reset(); }

    [[nodiscard]] bool isAutomatic() const { return isAutomatic_; }
    /// The caller reschedules.
    void setAutomatic(bool isAutomatic);

    [[nodiscard]] std::optional<tavrin::Date> lastCheck() const { return lastCheck_; }
    void recordCheck();

    [[nodiscard]] const std::optional<UpdateVersion>& skipped() const { return skipped_; }
    void skip(const UpdateVersion& version);

private:
    using Change = std::function<void(tavrin::UserDefaults&)>;

    void schedule(tavrin::Seconds delay);
    void saveChoice(const Change& change);
    /// Any thread. Returns the reason on failure.
    std::optional<std::string> write(const Change& change) const;

    Clock& clock_;
    tavrin::UserDefaults& defaults_;
    LogStore& logStore_;
    std::function<void()> check_;
    std::function<void(const std::optional<std::string>&)> choiceSaved_;
    bool isAutomatic_ = true;
    std::optional<tavrin::Date> lastCheck_;
    std::optional<UpdateVersion> skipped_;
    std::unique_ptr<Clock::Timer> timer_;
    /// Keeps the order, so that the last change of a setting is written last.
    WorkQueue writer_;
};

} // namespace orvel
