// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ShutdownLimit.h"

#include <unistd.h>

#include <exception>
#include <future>
#include <memory>
#include <utility>

namespace orvel {

namespace {

/// Waits for the removal only for a short time, because the disk of the remains may hang too.
void removeInTime(const std::function<void()>& remove) {
    try {
        const auto isRemoved = std::make_shared<std::promise<void>>();
        std::thread([remove, isRemoved] {
            remove();
            isRemoved->set_value();
        }).detach();
        isRemoved->get_future().wait_for(ShutdownLimit::removalTimeout);
    } catch (const std::exception&) {
        // There is no thread for it. The next scan removes what remains.
    }
}

} // namespace

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

void ShutdownLimit::start(std::chrono::milliseconds limit, int status) {
    const auto end = std::chrono::steady_clock::now() + limit - removalTimeout;
    thread_ = std::thread([this, end, status] {
        std::unique_lock lock(mutex_);
        if (!end_.wait_until(lock, end, [this] { return isOver_; })) {
            removeInTime(removeRemains_);
            // Not `exit`, which would run destructors of objects that the other threads use.
            _exit(status);
        }
    });
}

} // namespace orvel
