// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace orvel::test {

/// A clock that the test advances.
class ManualClock final : public Clock {
public:
    /// Starts at 2024-03-09T17:05:42Z by default.
    explicit ManualClock(tavrin::Date start = tavrin::Date(tavrin::Seconds(1'710'003'942)))
        : start_(start) {}

    /// Advances date and uptime. Due timers fire in order, each at its own time, including timers
    /// that a callback starts. Must not be called from a callback.
    void advance(tavrin::Seconds duration) {
        const tavrin::Seconds end = elapsed_ + duration;
        while (!timers_->empty() && timers_->begin()->first.first <= end) {
            const auto timer = timers_->extract(timers_->begin());
            elapsed_ = std::max(elapsed_, timer.key().first);
            timer.mapped()();
        }
        elapsed_ = end;
    }

    /// Date and uptime pass while the machine sleeps. The due timers fire when it wakes up, in
    /// order.
    void suspend(tavrin::Seconds duration) {
        elapsed_ += duration;
        advance(tavrin::Seconds(0));
    }

    /// The time until the next timer fires, or no value if none runs.
    [[nodiscard]] std::optional<tavrin::Seconds> untilNextTimer() const {
        return timers_->empty() ? std::nullopt
                                : std::optional(timers_->begin()->first.first - elapsed_);
    }

    /// The time until each running timer fires.
    [[nodiscard]] std::vector<tavrin::Seconds> untilTimers() const {
        std::vector<tavrin::Seconds> durations;
        for (const auto& [key, callback] : *timers_) {
            durations.push_back(key.first - elapsed_);
        }
        return durations;
    }

    [[nodiscard]] tavrin::Date now() const override { return start_ + elapsed_; }
    [[nodiscard]] tavrin::Seconds uptime() const override { return elapsed_; }

    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds delay, std::function<void()> callback) override {
        const Key key(elapsed_ + std::max(delay, tavrin::Seconds::zero()), scheduled_++);
        timers_->emplace(key, std::move(callback));
        return std::make_unique<ManualTimer>(timers_, key);
    }

private:
    /// The due time, and the order of scheduling.
    using Key = std::pair<tavrin::Seconds, std::uint64_t>;
    using Timers = std::map<Key, std::function<void()>>;

    class ManualTimer final : public Timer {
    public:
        ManualTimer(std::shared_ptr<Timers> timers, Key key)
            : timers_(std::move(timers)), key_(key) {}
        ~ManualTimer() override { timers_->erase(key_); }

    private:
        /// Shared, because a timer may outlive the clock.
        std::shared_ptr<Timers> timers_;
        Key key_;
    };

    tavrin::Date start_;
    tavrin::Seconds elapsed_{0};
    std::uint64_t scheduled_ = 0;
    std::shared_ptr<Timers> timers_ = std::make_shared<Timers>();
};

} // namespace orvel::test
