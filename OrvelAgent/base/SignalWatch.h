// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QSocketNotifier;

namespace orvel {

/// Calls back on the main thread when the first hang-up, interrupt or terminate signal arrives.
///
/// Further signals are ignored for `gracePeriod`, so they do not interrupt the shutdown: a desktop
/// session sends several when it ends. After that time, a further signal ends the process at once,
/// because the shutdown may hang. One object per process.
class SignalWatch final {
public:
    /// Throws `tavrin::PlatformError` if no pipe can be created.
    explicit SignalWatch(
        std::function<void()> onSignal,
        std::chrono::seconds gracePeriod = std::chrono::seconds(10));
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// The number of the received signal, if any.
    [[nodiscard]] std::optional<int> received() const { return received_; }

private:
    std::function<void()> onSignal_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::optional<int> received_;
};

} // namespace orvel
