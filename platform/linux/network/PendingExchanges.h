// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

class QObject;

namespace orvel {

/// The completions of a session's exchanges in flight. Each is called exactly once, from the event
/// loop of the thread that created this object, and never after its destruction.
class PendingExchanges final {
public:
    using Completion = std::function<void(URLResult)>;

    PendingExchanges();
    ~PendingExchanges();
    PendingExchanges(const PendingExchanges&) = delete;
    PendingExchanges& operator=(const PendingExchanges&) = delete;

    /// Returns the exchange's number.
    [[nodiscard]] std::uint64_t add(Completion completion);

    /// Any thread. Ignored when the exchange has been cancelled.
    void finish(std::uint64_t exchange, URLResult result);

    /// Returns false when the completion has already been called.
    bool cancel(std::uint64_t exchange);

    [[nodiscard]] std::size_t count() const { return completions_.size(); }

private:
    std::uint64_t last_ = 0;
    std::map<std::uint64_t, Completion> completions_;
    /// Destroyed first: drops queued calls.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
