// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/InstanceRegistry.h"
#include "tests/support/fakes/CountedSubscribers.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

/// The test sets the other copies.
class FakeInstanceRegistry final : public InstanceRegistry {
public:
    std::optional<RunningApplication> otherCopy;
    std::vector<std::int64_t> activatedCopies;

    [[nodiscard]] std::optional<RunningApplication> runningCopy(const std::string&) override {
        return otherCopy;
    }

    void activateCopy(const RunningApplication& application) override {
        activatedCopies.push_back(application.processIdentifier);
    }

    [[nodiscard]] std::unique_ptr<Subscription>
    onActivation(std::function<void()> activated) override {
        return activated_.add(std::move(activated));
    }

    [[nodiscard]] std::size_t subscriptions() const { return activated_.size(); }

    /// Another copy was started.
    void beActivated() { activated_.call(); }

private:
    CountedSubscribers activated_;
};

} // namespace orvel::test
