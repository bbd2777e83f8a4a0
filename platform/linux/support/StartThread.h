// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QPromise>

#include <thread>
#include <type_traits>
#include <utility>

namespace orvel {

/// Runs `work()`, which must not throw, on a new thread, then `finish` with its result on this
/// thread, unless the context was destroyed before. Unlike `WorkQueue`, for work that may hang.
template <typename Work, typename Finish>
[[nodiscard]] std::jthread startThread(QObject* context, Work work, Finish finish) {
    using Result = std::invoke_result_t<Work>;
    QPromise<Result> promise;
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(
        watcher, &QFutureWatcherBase::finished, context, [watcher, finish = std::move(finish)] {
            watcher->deleteLater();
            finish(watcher->future().takeResult());
        });
    watcher->setFuture(promise.future());
    return std::jthread([promise = std::move(promise), work = std::move(work)]() mutable {
        promise.start();
        promise.addResult(work());
        promise.finish();
    });
}

} // namespace orvel
