// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Subscription.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace orvel {

/// The callbacks subscribed to one event. A subscription may outlive this object.
class Subscribers final {
public:
    [[nodiscard]] std::unique_ptr<Subscription> add(std::function<void()> callback) {
        callbacks_->emplace(++last_, std::move(callback));
        return std::make_unique<Entry>(callbacks_, last_);
    }

    /// Calls all current subscribers. A callback may end subscriptions or destroy this object.
    void call() const {
        const std::shared_ptr<Callbacks> callbacks = callbacks_;
        const Callbacks all = *callbacks;
        for (const auto& [number, callback] : all) {
            if (callbacks->contains(number)) {
                callback();
            }
        }
    }

private:
    using Callbacks = std::map<std::uint64_t, std::function<void()>>;

    class Entry final : public Subscription {
    public:
        Entry(std::shared_ptr<Callbacks> callbacks, std::uint64_t number)
            : callbacks_(std::move(callbacks)), number_(number) {}
        ~Entry() override { callbacks_->erase(number_); }

    private:
        std::shared_ptr<Callbacks> callbacks_;
        std::uint64_t number_;
    };

    std::shared_ptr<Callbacks> callbacks_ = std::make_shared<Callbacks>();
    std::uint64_t last_ = 0;
};

} // namespace orvel
