// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/UpdateObserver.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

/// Records all events as text.
class RecordingUpdateObserver final : public UpdateObserver {
public:
    bool isGentle = true;
    std::vector<std::string> told;
    std::size_t checks = 0;
    /// "saved" or the failure, one for each choice.
    std::vector<std::string> saved;
    std::function<void()> onCheck;

    [[nodiscard]] bool wantsGentleOffers() const override { return isGentle; }
    void updateWillBeOffered(const SoftwareUpdate& update, bool isUserInitiated) override {
        told.push_back(update.version + (isUserInitiated ? " asked for" : " on schedule"));
    }
    void updateWasSeen(const SoftwareUpdate& update) override {
        told.push_back(update.version + " seen");
    }
    void checkFinished() override {
        told.emplace_back("checked");
        ++checks;
        if (onCheck) {
            onCheck();
        }
    }
    void choiceSaved(const std::optional<std::string>& failure) override {
        saved.push_back(failure.value_or("saved"));
    }
};

} // namespace orvel::test
