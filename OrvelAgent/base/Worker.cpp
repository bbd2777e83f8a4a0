// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Worker.h"

namespace orvel {

Worker::Worker() : thread_([this] { loop(); }) {}

Worker::~Worker() {
    stop();
}

void Worker::stop() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
    // Keep the order of the jobs. The resumed coroutines may add more.
    while (true) {
        if (const auto executed = take(executed_)) {
            executed->executed.resolve();
        } else if (const auto job = take(jobs_)) {
            job->execute();
            job->executed.resolve();
        } else {
            break;
        }
    }
    isStopped_ = true;
}

Deferred<void> Worker::post(std::function<void()> execute) {
    Job job{std::move(execute), {}};
    const Deferred<void> executed = job.executed;
    if (isStopped_) {
        job.execute();
        executed.resolve();
        return executed;
    }
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
    return executed;
}

void Worker::loop() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return isStopping_ || !jobs_.empty(); });
        if (isStopping_) {
            return;
        }
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job.execute();
        lock.lock();
        executed_.push_back(std::move(job));
        QMetaObject::invokeMethod(
            &callbackContext_, [this] { settleNext(); }, Qt::QueuedConnection);
    }
}

std::optional<Worker::Job> Worker::take(std::deque<Job>& jobs) {
    const std::lock_guard lock(mutex_);
    if (jobs.empty()) {
        return std::nullopt;
    }
    std::optional<Job> job = std::move(jobs.front());
    jobs.pop_front();
    return job;
}

void Worker::settleNext() {
    if (const auto job = take(executed_)) {
        // The waiting coroutine resumes inside this call and may destroy this object.
        job->executed.resolve();
    }
}

} // namespace orvel
