// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"

#include <exception>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace orvel {

/// One result that several coroutines wait for, each with a `Deferred` of its own. Main thread.
template <typename T>
class SharedResult final {
public:
    using Value = typename Deferred<T>::Value;

    SharedResult() = default;
    SharedResult(const SharedResult&) = delete;
    SharedResult& operator=(const SharedResult&) = delete;

    /// Settled at once when the result is there already.
    [[nodiscard]] std::shared_ptr<Deferred<T>> waiter() {
        auto waiter = std::make_shared<Deferred<T>>();
        if (value_) {
            waiter->resolve(*value_);
        } else if (error_) {
            waiter->reject(error_);
        } else {
            waiters_.push_back(waiter);
        }
        return waiter;
    }

    // Only the first settling counts. Those who wait resume inside it, and may destroy this object.

    void resolve(Value value) {
        if (isSettled()) {
            return;
        }
        value_ = value;
        for (const auto& waiter : std::exchange(waiters_, {})) {
            waiter->resolve(value);
        }
    }

    void reject(const std::exception_ptr& error) {
        if (isSettled()) {
            return;
        }
        error_ = error;
        for (const auto& waiter : std::exchange(waiters_, {})) {
            waiter->reject(error);
        }
    }

private:
    [[nodiscard]] bool isSettled() const { return value_.has_value() || error_ != nullptr; }

    std::optional<Value> value_;
    std::exception_ptr error_;
    std::vector<std::shared_ptr<Deferred<T>>> waiters_;
};

} // namespace orvel
