// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/MotionPreference.h"
#include "tests/support/fakes/CountedSubscribers.h"

#include <cstddef>
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

    [[nodiscard]] std::size_t subscriptions() const { return changed_.size(); }

    void setReducesMotion(bool reduces) {
        reducesMotion_ = reduces;
        changed_.call();
    }

private:
    bool reducesMotion_ = false;
    CountedSubscribers changed_;
};

} // namespace orvel::test
