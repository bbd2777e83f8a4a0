// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <new>
#include <thread>

namespace tavrin {

/// There is not enough memory. `what()` is a sentence for the user.
class OutOfMemory final : public std::bad_alloc {
public:
    [[nodiscard]] const char* what() const noexcept override;

    /// From here on, `new` throws this error if it fails.
    static void throwFromNew();
};

/// Repeats work until there is memory for it. For work at the end of a thread's job, without which
/// others would wait for the job for ever. The work must have no effect if it throws.
template <typename Work>
void repeatUntilThereIsMemory(Work work) {
    constexpr std::chrono::milliseconds pause(50);
    while (true) {
        try {
            work();
            return;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(pause);
        }
    }
}

} // namespace tavrin
