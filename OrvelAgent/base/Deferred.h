// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <cassert>
#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace orvel {

/// One result that arrives later: the bridge from a completion callback to `co_await`.
///
/// Shared between the callback and the one coroutine that awaits it, which resumes inside the call
/// that settles it. Only the first settling counts, so a result and a cancellation may race. Main
/// thread only.
template <typename T>
class Deferred final {
public:
    Deferred() = default;
    Deferred(const Deferred&) = delete;
    Deferred& operator=(const Deferred&) = delete;

    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    void resolve(Value value) {
        if (!isSettled()) {
            value_.emplace(std::move(value));
            resume();
        }
    }

    void reject(std::exception_ptr error) {
        if (!isSettled()) {
            error_ = std::move(error);
            resume();
        }
    }

    [[nodiscard]] bool isSettled() const { return value_.has_value() || error_ != nullptr; }

    /// To be awaited once.
    [[nodiscard]] auto result() { return Awaiter{this}; }

private:
    // Small and copyable, because some promise types copy what is awaited.
    struct Awaiter {
        Deferred* deferred;

        // The names are the language's.
        // NOLINTBEGIN(readability-identifier-naming)
        [[nodiscard]] bool await_ready() const noexcept { return deferred->isSettled(); }

        void await_suspend(std::coroutine_handle<> waiter) const noexcept {
            assert(!deferred->waiter_);
            deferred->waiter_ = waiter;
        }

        T await_resume() const {
            if (deferred->error_) {
                std::rethrow_exception(deferred->error_);
            }
            if constexpr (!std::is_void_v<T>) {
                return std::move(*deferred->value_);
            }
        }
        // NOLINTEND(readability-identifier-naming)
    };

    void resume() {
        if (waiter_) {
            std::exchange(waiter_, nullptr).resume();
        }
    }

    std::optional<Value> value_;
    std::exception_ptr error_;
    std::coroutine_handle<> waiter_;
};

/// Ends the wait with `TaskCancelled` when the token is cancelled, at once if it is already. The
/// result must not outlive the wait.
template <typename T>
[[nodiscard]] tavrin::CancellationToken::Registration rejectWhenCancelled(
    const tavrin::CancellationToken& cancellation, const std::shared_ptr<Deferred<T>>& deferred) {
    return cancellation.onCancel(
        [deferred] { deferred->reject(std::make_exception_ptr(tavrin::TaskCancelled())); });
}

} // namespace orvel
