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
/// `TaskOf<T>` is the caller's coroutine type, so this routine needs no event loop. It is a
/// coroutine and takes all arguments by value, which live as long as it runs.
///
/// - `delays`: the pauses in seconds. Their number is the number of retries. No jitter is added.
/// - `shouldRetry(std::exception_ptr) -> bool`: not called for a cancellation, which is never
///   retried.
/// - `sleep(double seconds) -> TaskOf<void>`: an exception ends the attempts and replaces the
///   operation's error.
/// - `onRetry(std::exception_ptr, std::size_t retry, double seconds)`: called before each pause.
///   The retries count from 1.
/// - `operation() -> TaskOf<T>`: its last error is rethrown unchanged.
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
        // A coroutine cannot suspend inside an exception handler, so handle the error after it.
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
