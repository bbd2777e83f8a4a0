// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"
#include "core/CancellationToken.h"

#include <QCoroTask>

#include <type_traits>
#include <utility>

namespace orvel {

/// Awaits the completion callback of a port.
///
/// `start(completion)` makes the call. The object that it returns (a task, an attempt or a timer),
/// if any, is kept until the wait ends. If the token is or becomes cancelled, throws
/// `TaskCancelled` at once, after calling `cancel()` on that object if it has one.
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
    // Do not wait for the port to report the cancellation: this object's users may be gone by then.
    const auto registration = cancellation.onCancel([&running] {
        if constexpr (requires { running->cancel(); }) {
            running->cancel();
        } else {
            // clang warns about a capture without a use.
            static_cast<void>(running);
        }
    });
    co_await result.settled(cancellation);
    if constexpr (!std::is_void_v<T>) {
        co_return result.take();
    }
}

} // namespace orvel
