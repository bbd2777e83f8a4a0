// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Worker.h"

#include "core/OutOfMemory.h"

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
        if (const auto executedJob = take(executedJobs_)) {
            executedJob->completion.resolve();
        } else if (const auto job = take(queuedJobs_)) {
            job->execute();
            job->completion.resolve();
        } else {
            break;
        }
    }
    isStopped_ = true;
}

Deferred<void> Worker::post(std::function<void()> execute) {
    Job job{std::move(execute), {}};
    const Deferred<void> completion = job.completion;
    if (isStopped_) {
        job.execute();
        completion.resolve();
        return completion;
    }
    {
        const std::lock_guard lock(mutex_);
        queuedJobs_.push_back(std::move(job));
    }
    wake_.notify_one();
    return completion;
}

void Worker::loop() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return isStopping_ || !queuedJobs_.empty(); });
        if (isStopping_) {
            return;
        }
        Jobs running;
        running.splice(running.end(), queuedJobs_, queuedJobs_.begin());
        lock.unlock();
        running.front().execute();
        lock.lock();
        executedJobs_.splice(executedJobs_.end(), running);
        // A coroutine waits for it.
        tavrin::repeatUntilThereIsMemory([this] {
            QMetaObject::invokeMethod(
                &callbackContext_, [this] { resolveNext(); }, Qt::QueuedConnection);
        });
    }
}

std::optional<Worker::Job> Worker::take(Jobs& jobs) {
    const std::lock_guard lock(mutex_);
    if (jobs.empty()) {
        return std::nullopt;
    }
    std::optional<Job> job = std::move(jobs.front());
    jobs.pop_front();
    return job;
}

void Worker::resolveNext() {
    if (const auto job = take(executedJobs_)) {
        // The waiting coroutine resumes inside this call and may destroy this object.
        job->completion.resolve();
    }
}

} // namespace orvel
