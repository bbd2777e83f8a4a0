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

struct CancellationToken::Registration::State {
    std::shared_ptr<CancellationToken::State> token;
    std::uint64_t id = 0;
};

CancellationToken::Registration::Registration() = default;

CancellationToken::Registration::Registration(std::unique_ptr<State> state)
    : state_(std::move(state)) {}

CancellationToken::Registration::Registration(Registration&& other) noexcept = default;

CancellationToken::Registration&
CancellationToken::Registration::operator=(Registration&& other) noexcept {
    // Unregisters the old callback at the end of this function.
    Registration old(std::move(*this));
    state_ = std::move(other.state_);
    return *this;
}

CancellationToken::Registration::~Registration() {
    if (!state_) {
        return;
    }
    CancellationToken::State& token = *state_->token;
    std::unique_lock lock(token.mutex);
    token.callbacks.erase(state_->id);
    // A callback that unregisters itself must not wait for itself to finish.
    if (token.runningThread != std::this_thread::get_id()) {
        token.callbackDone.wait(lock, [&] { return token.runningId != state_->id; });
    }
}

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
    auto registration = std::make_unique<Registration::State>();
    registration->token = state_;
    registration->id = id;
    return Registration(std::move(registration));
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

} // namespace tavrin
