// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Worker.h"

namespace orvel {

Worker::Worker() : thread_([this] { loop(); }) {}

Worker::~Worker() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Worker::post(std::shared_ptr<AnyJob> job) {
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
        QMetaObject::invokeMethod(
            &mainThreadContext_, [job] { job->settle(); }, Qt::QueuedConnection);
        lock.lock();
    }
}

} // namespace orvel
