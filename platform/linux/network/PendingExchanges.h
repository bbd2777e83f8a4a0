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
/// loop of the thread that made this object; none is called once it is destroyed.
class PendingExchanges final {
public:
    using Completion = std::function<void(URLResult)>;

    PendingExchanges();
    ~PendingExchanges();
    PendingExchanges(const PendingExchanges&) = delete;
    PendingExchanges& operator=(const PendingExchanges&) = delete;

    /// Gives the number of the exchange.
    [[nodiscard]] std::uint64_t add(Completion completion);

    /// Any thread. Nothing when the exchange has been cancelled in the meantime.
    void finish(std::uint64_t exchange, URLResult result);

    /// Gives false, and does nothing, when the completion has already been called.
    bool cancel(std::uint64_t exchange);

    [[nodiscard]] std::size_t count() const { return completions_.size(); }

private:
    std::uint64_t last_ = 0;
    std::map<std::uint64_t, Completion> completions_;
    /// Destroyed first: the calls it has queued are dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
