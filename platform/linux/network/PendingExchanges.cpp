// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/PendingExchanges.h"

#include "core/Secret.h"
#include "core/URLErrors.h"

#include <QObject>

#include <utility>

namespace orvel {

PendingExchanges::PendingExchanges() : callbackContext_(std::make_unique<QObject>()) {}

PendingExchanges::~PendingExchanges() = default;

std::uint64_t PendingExchanges::add(Completion completion) {
    completions_.emplace(++last_, std::move(completion));
    return last_;
}

void PendingExchanges::finish(std::uint64_t exchange, URLResult result) {
    QMetaObject::invokeMethod(
        callbackContext_.get(),
        [this, exchange, result = std::move(result)]() mutable {
            if (const auto found = completions_.extract(exchange); !found.empty()) {
                // The completion may destroy this object.
                found.mapped()(std::move(result));
            } else if (auto* response = std::get_if<URLResponse>(&result)) {
                // Cancelled meanwhile. The body may contain a token.
                tavrin::wipe(response->body);
            }
        },
        Qt::QueuedConnection);
}

bool PendingExchanges::cancel(std::uint64_t exchange) {
    auto found = completions_.extract(exchange);
    if (found.empty()) {
        return false;
    }
    QMetaObject::invokeMethod(
        callbackContext_.get(),
        [completion = std::move(found.mapped())] {
            completion(urlError(tavrin::URLErrorCode::Cancelled));
        },
        Qt::QueuedConnection);
    return true;
}

} // namespace orvel
