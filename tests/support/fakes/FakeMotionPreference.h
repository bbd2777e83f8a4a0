// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/MotionPreference.h"
#include "platform/Subscribers.h"

#include <functional>
#include <memory>
#include <utility>

namespace orvel::test {

/// The test sets the preference. Initially motion is not reduced.
class FakeMotionPreference final : public MotionPreference {
public:
    [[nodiscard]] bool shouldReduceMotion() override { return reducesMotion_; }

    [[nodiscard]] std::unique_ptr<Subscription> onChange(std::function<void()> changed) override {
        return changed_.add(std::move(changed));
    }

    void setReducesMotion(bool reduces) {
        reducesMotion_ = reduces;
        changed_.call();
    }

private:
    bool reducesMotion_ = false;
    Subscribers changed_;
};

} // namespace orvel::test
