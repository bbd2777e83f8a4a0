// SPDX-License-Identifier: Apache-2.0
#include "core/CancellationToken.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace tavrin {

bool isCancellation(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const TaskCancelled&) {
        return true;
    } catch (...) {
        return false;
    }
}

struct CancellationToken::State {
    std::mutex mutex;
    std::condition_variable callbackDone;
    bool isCancelled = false;
    std::uint64_t nextId = 1;
    std::map<std::uint64_t, std::function<void()>> callbacks;
    /// The callback that `cancel()` is running without the lock, and its thread.
    std::uint64_t runningId = 0;
    std::thread::id runningThread;
};

struct CancellationToken::Callback {
    std::shared_ptr<State> state;
    std::uint64_t id;

    Callback(std::shared_ptr<State> owner, std::uint64_t number)
        : state(std::move(owner)), id(number) {}
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;
    ~Callback() {
        std::unique_lock lock(state->mutex);
        state->callbacks.erase(id);
        // A callback that unregisters itself must not wait for itself to finish.
        if (state->runningThread != std::this_thread::get_id()) {
            state->callbackDone.wait(lock, [this] { return state->runningId != id; });
        }
    }
};

CancellationToken::CancellationToken(std::shared_ptr<State> state) : state_(std::move(state)) {}

bool CancellationToken::isCancelled() const {
    if (!state_) {
        return false;
    }
    const std::lock_guard lock(state_->mutex);
    return state_->isCancelled;
}

void CancellationToken::throwIfCancelled() const {
    if (isCancelled()) {
        throw TaskCancelled();
    }
}

CancellationToken::Registration CancellationToken::onCancel(std::function<void()> callback) const {
    if (!state_) {
        return {};
    }
    std::unique_lock lock(state_->mutex);
    if (state_->isCancelled) {
        lock.unlock();
        callback();
        return {};
    }
    const std::uint64_t id = state_->nextId++;
    state_->callbacks.emplace(id, std::move(callback));
    return std::make_shared<Callback>(state_, id);
}

CancellationSource::CancellationSource() : state_(std::make_shared<CancellationToken::State>()) {}

CancellationToken CancellationSource::token() const {
    return CancellationToken(state_);
}

void CancellationSource::cancel() {
    // Keep the state alive: the callbacks may destroy this source.
    const std::shared_ptr<CancellationToken::State> state = state_;
    std::unique_lock lock(state->mutex);
    if (state->isCancelled) {
        return;
    }
    state->isCancelled = true;
    state->runningThread = std::this_thread::get_id();
    while (!state->callbacks.empty()) {
        auto first = state->callbacks.extract(state->callbacks.begin());
        state->runningId = first.key();
        lock.unlock();
        first.mapped()();
        lock.lock();
        state->runningId = 0;
        state->callbackDone.notify_all();
    }
    state->runningThread = {};
}

LinkedCancellation::LinkedCancellation(
    const CancellationToken& first, const CancellationToken& second) {
    const auto cancel = [source = source_]() mutable {
        source.cancel();
    };
    first_ = first.onCancel(cancel);
    second_ = second.onCancel(cancel);
}

} // namespace tavrin
