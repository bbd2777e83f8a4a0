// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/URLLoading.h"

#include "OrvelAgent/Deferred.h"

#include <memory>
#include <utility>
#include <variant>

namespace orvel {

QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation) {
    if (cancellation.isCancelled()) {
        throw tavrin::URLError(tavrin::URLErrorCode::Cancelled, "The request was cancelled.");
    }
    const auto reply = std::make_shared<Deferred<URLResult>>();
    const auto task = session->start(
        std::move(request), [reply](URLResult result) { reply->resolve(std::move(result)); });
    const auto registration = cancellation.onCancel([&task] { task->cancel(); });
    URLResult result = co_await reply->result();
    if (const auto* error = std::get_if<tavrin::URLError>(&result)) {
        throw tavrin::URLError(*error);
    }
    co_return std::get<URLResponse>(std::move(result));
}

} // namespace orvel
