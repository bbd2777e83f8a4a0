// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Subscribers.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace orvel::test {

/// Subscribers that can be counted.
class CountedSubscribers final {
public:
    [[nodiscard]] std::unique_ptr<Subscription> add(std::function<void()> callback) {
        return subscribers_.add(
            [callback = std::move(callback), counted = counted_] { callback(); });
    }

    void call() const { subscribers_.call(); }

    /// The number of current subscriptions.
    [[nodiscard]] std::size_t size() const {
        return static_cast<std::size_t>(counted_.use_count()) - 1;
    }

private:
    /// Each callback holds a copy.
    std::shared_ptr<int> counted_ = std::make_shared<int>();
    Subscribers subscribers_;
};

} // namespace orvel::test
