// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/URLLoading.h"

#include "OrvelAgent/base/Completion.h"

#include <utility>
#include <variant>

namespace orvel {

QCoro::Task<URLResponse>
load(URLSession* session, URLRequest request, tavrin::CancellationToken cancellation) {
    auto start = [session, request = std::move(request)](auto completion) mutable {
        return session->start(std::move(request), std::move(completion));
    };
    URLResult result = co_await awaitCompletion<URLResult>(std::move(start), cancellation);
    if (const auto* error = std::get_if<tavrin::URLError>(&result)) {
        throw tavrin::URLError(*error);
    }
    co_return std::get<URLResponse>(std::move(result));
}

} // namespace orvel
