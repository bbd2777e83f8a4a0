// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <functional>
#include <memory>

namespace tavrin {

/// Thrown where work ends because its token was cancelled. Not a failure to show to the user.
/// The agent has no other error for this: what a port reports as cancelled is its own.
class TaskCancelled final : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "The task was cancelled."; }
};

/// Whether the exception is a `TaskCancelled`.
[[nodiscard]] bool isCancellation(const std::exception_ptr& error);

/// Tells work that it should stop. Copies share one state; a default-made token is never cancelled.
/// Thread-safe. (`std::stop_token` is missing from some toolchains this has to build with.)
class CancellationToken final {
public:
    /// Unregisters its callback when destroyed. If the callback is just running on another thread,
    /// the destructor waits for it.
    class Registration final {
    public:
        Registration();
        Registration(Registration&& other) noexcept;
        Registration& operator=(Registration&& other) noexcept;
        ~Registration();

    private:
        friend class CancellationToken;
        struct State;
        explicit Registration(std::unique_ptr<State> state);
        std::unique_ptr<State> state_;
    };

    CancellationToken() = default;

    [[nodiscard]] bool isCancelled() const;
    void throwIfCancelled() const;

    /// Calls back once when cancelled, on the cancelling thread; at once, before returning, when
    /// that has already happened. The callback must not throw.
    [[nodiscard]] Registration onCancel(std::function<void()> callback) const;

private:
    friend class CancellationSource;
    struct State;
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

} // namespace tavrin
