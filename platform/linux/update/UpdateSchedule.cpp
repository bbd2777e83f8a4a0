// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateSchedule.h"

#include "core/Errors.h"
#include "core/UserDefaults.h"

#include <algorithm>
#include <utility>

namespace orvel {

UpdateSchedule::UpdateSchedule(
    Clock& clock,
    tavrin::UserDefaults& defaults,
    LogStore& logStore,
    std::function<void()> check,
    std::function<void(const std::optional<std::string>& failure)> choiceSaved)
    : clock_(clock),
      defaults_(defaults),
      logStore_(logStore),
      check_(std::move(check)),
      choiceSaved_(std::move(choiceSaved)),
      isAutomatic_(storedValue<bool>(defaults, automaticKey).value_or(true)),
      lastCheck_(storedValue<tavrin::Date>(defaults, lastCheckKey)),
      skipped_(UpdateVersion::parse(storedValue<std::string>(defaults, skippedKey).value_or(""))) {}

void UpdateSchedule::scheduleNext() {
    const tavrin::Seconds sinceLast = lastCheck_ ? clock_.now() - *lastCheck_ : checkInterval;
    // The last check is in the future when the clock has been set back since.
    schedule(std::clamp(checkInterval - sinceLast, tavrin::Seconds(0), checkInterval));
}

void UpdateSchedule::schedule(tavrin::Seconds delay) {
    timer_.reset();
    if (isAutomatic_) {
        timer_ = clock_.schedule(delay, check_);
    }
}

void UpdateSchedule::setAutomatic(bool isAutomatic) {
    isAutomatic_ = isAutomatic;
    saveChoice(
        [isAutomatic](tavrin::UserDefaults& defaults) { defaults.set(automaticKey, isAutomatic); });
}

void UpdateSchedule::recordCheck() {
    lastCheck_ = clock_.now();
    writer_.run([this, date = *lastCheck_] {
        write([date](tavrin::UserDefaults& defaults) { defaults.set(lastCheckKey, date); });
    });
}

void UpdateSchedule::skip(const UpdateVersion& version) {
    skipped_ = version;
    saveChoice([text = version.text()](tavrin::UserDefaults& defaults) {
        defaults.set(skippedKey, text);
    });
}

void UpdateSchedule::saveChoice(const Change& change) {
    writer_.run([this, change] { return write(change); }, choiceSaved_);
}

std::optional<std::string> UpdateSchedule::write(const Change& change) const {
    try {
        change(defaults_);
        return std::nullopt;
    } catch (const tavrin::PlatformError& error) {
        logStore_.write(LogLevel::Error, "update", error.what());
        return error.what();
    }
}

} // namespace orvel
