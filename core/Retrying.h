// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/CancellationToken.h"

#include <cstddef>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace tavrin {

/// Runs `operation` until it succeeds, with a pause before each further attempt.
///
/// `TaskOf<T>` is the caller's coroutine type; this routine brings no event loop of its own. It is
/// a coroutine: all arguments are taken by value and live as long as it runs.
///
/// - `delays`: the pauses in seconds; their number is the number of retries. Nothing is added to
///   them: the list is the whole policy.
/// - `shouldRetry(std::exception_ptr) -> bool`. A cancellation ends the attempts without asking.
/// - `sleep(double seconds) -> TaskOf<void>`: what it throws ends the attempts and replaces the
///   operation's error.
/// - `onRetry(std::exception_ptr, std::size_t retry, double seconds)`: before each pause; the
///   retries count from 1.
/// - `operation() -> TaskOf<T>`: its last error is thrown unchanged.
template <
    template <typename>
    class TaskOf,
    typename T,
    typename ShouldRetry,
    typename Sleep,
    typename OnRetry,
    typename Operation>
TaskOf<T> retrying(
    std::vector<double> delays,
    ShouldRetry shouldRetry,
    Sleep sleep,
    OnRetry onRetry,
    Operation operation) {
    for (std::size_t attempt = 0;; ++attempt) {
        // A coroutine cannot suspend inside a handler, so the error is carried out of it.
        std::exception_ptr error;
        try {
            if constexpr (std::is_void_v<T>) {
                co_await operation();
                co_return;
            } else {
                co_return co_await operation();
            }
        } catch (...) {
            error = std::current_exception();
        }
        if (attempt >= delays.size() || isCancellation(error) || !shouldRetry(error)) {
            std::rethrow_exception(error);
        }
        const double delay = delays[attempt];
        onRetry(error, attempt + 1, delay);
        co_await sleep(delay);
    }
}

} // namespace tavrin
