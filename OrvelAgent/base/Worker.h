// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"

#include <QCoroTask>
#include <QObject>

#include <condition_variable>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>

namespace orvel {

/// A thread for blocking work, such as files, SQLite and encoding. Jobs run one after another.
///
/// Create and use it on the main thread. The destructor calls `stop`.
class Worker final {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Waits for the running job, ends the thread and runs the remaining jobs on this thread. All
    /// coroutines that await a job resume within this call, so the objects they use must still
    /// exist. Afterwards, `run` does its work at once on the main thread.
    void stop();

    /// Runs `work()` on the worker thread. Returns its result, or rethrows its exception, on the
    /// main thread. The callable and the objects it owns are destroyed on the worker before that.
    template <typename Work>
    QCoro::Task<std::invoke_result_t<Work>> run(Work work) {
        using Result = std::invoke_result_t<Work>;
        const auto task = std::make_shared<std::packaged_task<Result()>>(
            [work = std::optional<Work>(std::move(work))]() mutable {
                Work own = std::move(*std::exchange(work, std::nullopt));
                return own();
            });
        const Deferred<void> completion = post([task] { (*task)(); });
        co_await completion.settled();
        co_return task->get_future().get();
    }

private:
    struct Job {
        std::function<void()> execute;
        /// Resolved on the main thread.
        Deferred<void> completion;
    };

    /// Queues a job and returns its completion.
    Deferred<void> post(std::function<void()> execute);
    void loop();
    /// Lists, because moving a job from one to the other needs no memory.
    using Jobs = std::list<Job>;
    [[nodiscard]] std::optional<Job> take(Jobs& jobs);
    void resolveNext();

    QObject callbackContext_;
    std::mutex mutex_;
    std::condition_variable wake_;
    Jobs queuedJobs_;
    /// Their completions are resolved by the event posted for each job, or by `stop`.
    Jobs executedJobs_;
    bool isStopping_ = false;
    /// Main thread only. After this, no job is queued.
    bool isStopped_ = false;
    std::thread thread_;
};

} // namespace orvel
