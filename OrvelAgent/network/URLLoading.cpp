// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/URLLoading.h"

#include "OrvelAgent/base/Deferred.h"

#include <exception>
#include <memory>
#include <utility>
#include <variant>

namespace orvel {

namespace {

tavrin::URLError cancelled() {
    return {tavrin::URLErrorCode::Cancelled, "The request was cancelled."};
}

} // namespace

QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation) {
    if (cancellation.isCancelled()) {
        throw cancelled();
    }
    const auto reply = std::make_shared<Deferred<URLResult>>();
    const auto task = session->start(
        std::move(request), [reply](URLResult result) { reply->resolve(std::move(result)); });
    // Not left to the session's own completion, which comes later, when all may be gone.
    const auto registration = cancellation.onCancel([&task, reply] {
        task->cancel();
        reply->reject(std::make_exception_ptr(cancelled()));
    });
    URLResult result = co_await reply->result();
    if (const auto* error = std::get_if<tavrin::URLError>(&result)) {
        throw tavrin::URLError(*error);
    }
    co_return std::get<URLResponse>(std::move(result));
}

} // namespace orvel
