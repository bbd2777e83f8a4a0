// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "core/CancellationToken.h"

#include <QCoroTask>

#include <type_traits>
#include <utility>

namespace orvel {

/// Awaits the completion callback of a port: the one adapter from callbacks to coroutines.
///
/// `start(completion)` makes the call. What it returns (a task, an attempt, a timer, or nothing)
/// lives until the wait is over. Throws `TaskCancelled` at once when the token is cancelled, before
/// or meanwhile, after calling `cancel()` on that object if it has one.
template <typename T, typename Start>
QCoro::Task<T> awaitCompletion(Start start, tavrin::CancellationToken cancellation) {
    cancellation.throwIfCancelled();
    const Deferred<T> result;
    auto completion = [result](auto... value) {
        result.resolve(std::move(value)...);
    };
    const auto running = [&start, &completion] {
        if constexpr (std::is_void_v<decltype(start(std::move(completion)))>) {
            start(std::move(completion));
            return nullptr;
        } else {
            return start(std::move(completion));
        }
    }();
    // Not left to the port's own report of the end, which comes later, when all may be gone.
    const auto registration = cancellation.onCancel([&running] {
        if constexpr (requires { running->cancel(); }) {
            running->cancel();
        }
    });
    co_await result.settled(cancellation);
    if constexpr (!std::is_void_v<T>) {
        co_return result.take();
    }
}

} // namespace orvel
