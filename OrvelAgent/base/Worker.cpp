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
    // In the order in which the jobs came; those who go on may ask for further ones.
    while (true) {
        if (const auto executed = take(executed_)) {
            executed->settle();
        } else if (const auto job = take(jobs_)) {
            job->execute();
            job->settle();
        } else {
            break;
        }
    }
    isStopped_ = true;
}

void Worker::post(std::shared_ptr<AnyJob> job) {
    if (isStopped_) {
        job->execute();
        job->settle();
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void Worker::loop() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return isStopping_ || !jobs_.empty(); });
        if (isStopping_) {
            return;
        }
        const std::shared_ptr<AnyJob> job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job->execute();
        lock.lock();
        executed_.push_back(job);
        QMetaObject::invokeMethod(
            &mainThreadContext_, [this] { settleNext(); }, Qt::QueuedConnection);
    }
}

std::shared_ptr<Worker::AnyJob> Worker::take(std::deque<std::shared_ptr<AnyJob>>& jobs) {
    const std::lock_guard lock(mutex_);
    if (jobs.empty()) {
        return nullptr;
    }
    std::shared_ptr<AnyJob> job = std::move(jobs.front());
    jobs.pop_front();
    return job;
}

void Worker::settleNext() {
    if (const auto job = take(executed_)) {
        // Whoever awaited it goes on in here, and may destroy this object.
        job->settle();
    }
}

} // namespace orvel
