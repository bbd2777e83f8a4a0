// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QSocketNotifier;

namespace orvel {

/// Turns the first of the signals that ask a program to end (hang-up, interrupt, terminate) into a
/// call on the main thread.
///
/// Further ones change nothing, so that what is being put away gets put away: the end of a session
/// sends several. Should the program hang, one that comes after `patience` ends it at once. One
/// object per process.
class SignalWatch final {
public:
    /// Throws `tavrin::PlatformError` when the system has no room for it.
    explicit SignalWatch(
        std::function<void()> onSignal, std::chrono::seconds patience = std::chrono::seconds(10));
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// The signal that came, if any.
    [[nodiscard]] std::optional<int> received() const { return received_; }

private:
    std::function<void()> onSignal_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::optional<int> received_;
};

} // namespace orvel
