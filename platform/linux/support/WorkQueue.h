// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/CallbackContext.h"

#include <QThreadPool>

#include <functional>
#include <utility>

namespace orvel {

/// A thread for work that may take longer than a frame, such as disk access. Runs jobs in call
/// order. The destructor waits for all jobs and drops their results.
class WorkQueue final {
public:
    WorkQueue() { thread_.setMaxThreadCount(1); }

    /// The job must not throw.
    void run(std::function<void()> job) { thread_.start(std::move(job)); }

    /// Runs `work()`, which must not throw, then `finish` with its result on the thread that
    /// created this object.
    template <typename Work, typename Finish>
    void run(Work work, Finish finish) {
        // Moved on, so that the worker does not destroy what the callback captured.
        thread_.start([this, work = std::move(work), finish = std::move(finish)]() mutable {
            callbackContext_.post(
                [result = work(), finish = std::move(finish)]() mutable { finish(result); });
        });
    }

private:
    CallbackContext callbackContext_;
    /// Destroyed first: waits for all jobs.
    QThreadPool thread_;
};

} // namespace orvel
