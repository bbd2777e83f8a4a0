// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <QCoroTask>

#include <coroutine>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace orvel {

/// A result that one or more coroutines await.
///
/// Use it when coroutines wait for the result of another one. To await a port's completion
/// callback, use `awaitCompletion`.
///
/// Copies share one result. Only the first `resolve` or `reject` has an effect. It may happen on
/// any thread, and the waiting coroutines resume inside that call. Await and cancel on the main
/// thread.
template <typename T>
class Deferred final {
public:
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    void resolve(Value value = {}) const {
        settle(Outcome(std::in_place_index<0>, std::move(value)));
    }

    void reject(std::exception_ptr error) const {
        settle(Outcome(std::in_place_index<1>, std::move(error)));
    }

    [[nodiscard]] bool isSettled() const { return state_->isSettled(); }

    /// Waits for the result. Throws the error of `reject`, or `TaskCancelled` at once if the token
    /// is cancelled first.
    [[nodiscard]] QCoro::Task<> settled(tavrin::CancellationToken cancellation = {}) const {
        return wait(state_, std::move(cancellation));
    }

    /// The value of `resolve`. Call it only after `settled`.
    [[nodiscard]] const Value& value() const { return std::get<0>(*state_->outcome); }

    /// Moves the value out, so that no copy remains. Only for a result with one waiter.
    [[nodiscard]] Value take() const { return std::move(std::get<0>(*state_->outcome)); }

private:
    using Outcome = std::variant<Value, std::exception_ptr>;

    struct Waiter {
        /// Null unless it is suspended.
        std::coroutine_handle<> coroutine;
        bool isCancelled = false;
    };

    struct State {
        std::mutex mutex;
        std::optional<Outcome> outcome;
        std::vector<std::shared_ptr<Waiter>> waiters;

        [[nodiscard]] bool isSettled() {
            const std::lock_guard guard(mutex);
            return outcome.has_value();
        }

        void resume(Waiter& waiter, bool isCancelled) {
            std::coroutine_handle<> coroutine;
            {
                const std::lock_guard guard(mutex);
                coroutine = std::exchange(waiter.coroutine, nullptr);
                if (coroutine) {
                    waiter.isCancelled = isCancelled;
                }
            }
            if (coroutine) {
                coroutine.resume();
            }
        }
    };

    // Small and copyable, because some promise types copy what is awaited.
    struct Suspension {
        State* state;
        const std::shared_ptr<Waiter>* waiter;

        // The language defines the names.
        // NOLINTBEGIN(readability-identifier-naming)
        [[nodiscard]] bool await_ready() const noexcept { return false; }

        /// Returns false if there is a result already.
        [[nodiscard]] bool await_suspend(std::coroutine_handle<> coroutine) const {
            const std::lock_guard guard(state->mutex);
            if (state->outcome) {
                return false;
            }
            (*waiter)->coroutine = coroutine;
            state->waiters.push_back(*waiter);
            return true;
        }

        void await_resume() const noexcept {}
        // NOLINTEND(readability-identifier-naming)
    };

    static QCoro::Task<>
    wait(std::shared_ptr<State> state, tavrin::CancellationToken cancellation) {
        const auto waiter = std::make_shared<Waiter>();
        const auto registration =
            cancellation.onCancel([state, waiter] { state->resume(*waiter, true); });
        const Suspension suspension{state.get(), &waiter};
        if (!state->isSettled()) {
            cancellation.throwIfCancelled();
            co_await suspension;
        }
        if (waiter->isCancelled) {
            throw tavrin::TaskCancelled();
        }
        if (const auto* error = std::get_if<1>(&*state->outcome)) {
            std::rethrow_exception(*error);
        }
    }

    void settle(Outcome outcome) const {
        // A resumed coroutine may destroy this object.
        const std::shared_ptr<State> state = state_;
        std::vector<std::shared_ptr<Waiter>> waiters;
        {
            const std::lock_guard guard(state->mutex);
            if (state->outcome) {
                return;
            }
            state->outcome.emplace(std::move(outcome));
            waiters.swap(state->waiters);
        }
        for (const std::shared_ptr<Waiter>& waiter : waiters) {
            state->resume(*waiter, false);
        }
    }

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace orvel
