// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/Deferred.h"

#include <QCoroTask>
#include <QObject>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>

namespace orvel {

/// A thread for work that blocks: files, SQLite, encoding. Jobs run one after another.
///
/// Made and used on the main thread. Its destructor stops it.
class Worker final {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Ends the thread, once the job that runs is done, and carries out here and now what is left
    /// to do: nothing that was asked for is lost. Everybody who awaits a job goes on within this
    /// call, so what they use must still be there. From then on `run` does its work at once, on the
    /// main thread.
    void stop();

    /// Runs `work()` on the thread and gives its result, or throws what it threw, on the main
    /// thread. The callable is destroyed on the worker before the result arrives, so what it owned
    /// alone is gone by then.
    template <typename Work>
    QCoro::Task<std::invoke_result_t<Work>> run(Work work) {
        using Result = std::invoke_result_t<Work>;
        auto deferred = std::make_shared<Deferred<Result>>();
        post(std::make_shared<Job<Work, Result>>(std::move(work), deferred));
        if constexpr (std::is_void_v<Result>) {
            co_await deferred->result();
        } else {
            co_return co_await deferred->result();
        }
    }

private:
    struct AnyJob {
        AnyJob() = default;
        AnyJob(const AnyJob&) = delete;
        AnyJob& operator=(const AnyJob&) = delete;
        virtual ~AnyJob() = default;
        /// On the worker.
        virtual void execute() = 0;
        /// On the main thread, after `execute`.
        virtual void settle() = 0;
    };

    template <typename Work, typename Result>
    struct Job final : AnyJob {
        Job(Work callable, std::shared_ptr<Deferred<Result>> target)
            : work(std::move(callable)), deferred(std::move(target)) {}

        void execute() override {
            try {
                // Destroyed before the result is handed over.
                Work own = std::move(*std::exchange(work, std::nullopt));
                if constexpr (std::is_void_v<Result>) {
                    own();
                    result.emplace();
                } else {
                    result.emplace(own());
                }
            } catch (...) {
                error = std::current_exception();
            }
        }

        void settle() override {
            if (error) {
                deferred->reject(std::move(error));
            } else {
                deferred->resolve(std::move(*result));
            }
        }

        std::optional<Work> work;
        std::shared_ptr<Deferred<Result>> deferred;
        std::optional<typename Deferred<Result>::Value> result;
        std::exception_ptr error;
    };

    void post(std::shared_ptr<AnyJob> job);
    void loop();
    /// The next job that is to be executed, or settled; none when there is none.
    [[nodiscard]] std::shared_ptr<AnyJob> take(std::deque<std::shared_ptr<AnyJob>>& jobs);
    void settleNext();

    QObject mainThreadContext_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::shared_ptr<AnyJob>> jobs_;
    /// Still to be settled, each once: by the event that was posted for it, or by `stop`.
    std::deque<std::shared_ptr<AnyJob>> executed_;
    bool isStopping_ = false;
    /// Of the main thread: nothing is queued any more.
    bool isStopped_ = false;
    std::thread thread_;
};

} // namespace orvel
