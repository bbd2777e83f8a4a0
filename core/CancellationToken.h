// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <functional>
#include <memory>

namespace tavrin {

/// Thrown when work ends because its token was cancelled. Not shown to the user. Ports may have
/// further errors for their own cancellations.
class TaskCancelled final : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "The task was cancelled."; }
};

[[nodiscard]] bool isCancellation(const std::exception_ptr& error);

/// Tells work to stop. Copies share one state. A default-constructed token is never cancelled.
/// Thread-safe. (Some supported toolchains lack `std::stop_token`.)
class CancellationToken final {
public:
    /// Unregisters its callback when its last copy is destroyed. If the callback is running on
    /// another thread, that waits for it.
    using Registration = std::shared_ptr<const void>;

    CancellationToken() = default;

    [[nodiscard]] bool isCancelled() const;
    void throwIfCancelled() const;

    /// Calls back once when cancelled, on the cancelling thread. If already cancelled, calls back
    /// before it returns. The callback must not throw.
    [[nodiscard]] Registration onCancel(std::function<void()> callback) const;

private:
    friend class CancellationSource;
    struct State;
    struct Callback;
    explicit CancellationToken(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

/// Cancels its tokens. Thread-safe.
class CancellationSource final {
public:
    CancellationSource();

    [[nodiscard]] CancellationToken token() const;

    /// The first call runs the callbacks; later ones do nothing.
    void cancel();

private:
    std::shared_ptr<CancellationToken::State> state_;
};

/// Its token is cancelled with the first of two others, while this object exists.
class LinkedCancellation final {
public:
    LinkedCancellation(const CancellationToken& first, const CancellationToken& second);

    [[nodiscard]] CancellationToken token() const { return source_.token(); }

private:
    CancellationSource source_;
    CancellationToken::Registration first_;
    CancellationToken::Registration second_;
};

} // namespace tavrin
