// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace orvel {

/// Ends the process if quitting takes too long: a thread that hangs in a call to the system, such
/// as reading from a network mount whose server is gone, can be neither ended nor waited for.
class ShutdownLimit final {
public:
    /// How long `removeRemains` may take. Enough for a large file on a slow disk.
    static constexpr std::chrono::milliseconds removalTimeout{300};

    /// `removeRemains` is called on another thread before the process ends. The process ends even
    /// if it hangs.
    explicit ShutdownLimit(std::function<void()> removeRemains);
    /// From here on, the process is not ended.
    ~ShutdownLimit();
    ShutdownLimit(const ShutdownLimit&) = delete;
    ShutdownLimit& operator=(const ShutdownLimit&) = delete;

    /// Ends the process with that status, without any further clean-up, unless this object is
    /// destroyed `removalTimeout` before the limit. Then it calls `removeRemains`, and the process
    /// ends at the limit, or once that has returned. Call it once.
    void start(std::chrono::milliseconds limit, int status = 0);

private:
    const std::function<void()> removeRemains_;
    std::mutex mutex_;
    std::condition_variable end_;
    bool isOver_ = false;
    std::thread thread_;
};

} // namespace orvel
