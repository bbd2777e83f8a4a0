// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ShutdownLimit.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace orvel {

ShutdownLimit::ShutdownLimit(std::function<void()> removeRemains)
    : removeRemains_(std::move(removeRemains)) {}

ShutdownLimit::~ShutdownLimit() {
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    end_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ShutdownLimit::start(std::chrono::milliseconds limit) {
    thread_ = std::thread([this, end = std::chrono::steady_clock::now() + limit] {
        std::unique_lock lock(mutex_);
        if (!end_.wait_until(lock, end, [this] { return isOver_; })) {
            removeRemains_();
            // Not `exit`, which would run destructors of objects that the other threads use.
            _exit(EXIT_SUCCESS);
        }
    });
}

} // namespace orvel
