// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"

#include <QCoroTask>
#include <QObject>

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>

namespace orvel {

/// A thread for work that blocks: files, SQLite, encoding. Jobs run one after another.
///
/// Use it for every piece of work of the agent that could hold up the main thread. Made and used on
/// the main thread. Its destructor stops it.
class Worker final {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Ends the thread once the job that runs is done, and runs the remaining jobs here and now:
    /// none is lost. All coroutines that await a job resume within this call, so what they use must
    /// still be there. From then on `run` does its work at once, on the main thread.
    void stop();

    /// Runs `work()` on the thread and gives its result, or throws what it threw, on the main
    /// thread. The callable is destroyed on the worker before the result arrives, so what it owned
    /// alone is gone by then.
    template <typename Work>
    QCoro::Task<std::invoke_result_t<Work>> run(Work work) {
        using Result = std::invoke_result_t<Work>;
        const auto task = std::make_shared<std::packaged_task<Result()>>(
            [work = std::optional<Work>(std::move(work))]() mutable {
                Work own = std::move(*std::exchange(work, std::nullopt));
                return own();
            });
        const Deferred<void> executed = post([task] { (*task)(); });
        co_await executed.settled();
        co_return task->get_future().get();
    }

private:
    struct Job {
        std::function<void()> execute;
        /// On the main thread.
        Deferred<void> executed;
    };

    /// Gives what is settled when the job was executed.
    Deferred<void> post(std::function<void()> execute);
    void loop();
    /// Removes the first job, if there is one.
    [[nodiscard]] std::optional<Job> take(std::deque<Job>& jobs);
    void settleNext();

    QObject callbackContext_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Job> jobs_;
    /// Still to be settled, each once: by the event that was posted for it, or by `stop`.
    std::deque<Job> executed_;
    bool isStopping_ = false;
    /// Of the main thread: nothing is queued any more.
    bool isStopped_ = false;
    std::thread thread_;
};

} // namespace orvel
