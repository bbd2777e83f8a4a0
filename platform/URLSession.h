// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "core/Errors.h"
#include "core/Interface.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel {

struct URLRequest {
    /// Absolute, https.
    std::string url;
    std::string method = "GET";
    /// Sent in this order.
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<std::string> body;
    /// For the whole exchange, from the first lookup to the last byte.
    tavrin::Seconds timeout{60};
    /// Receives the body of a status-200 reply in pieces; `URLResponse::body` then stays empty and
    /// its size limit does not apply. Called on any thread, possibly after `cancel`, but never
    /// after the completion. Returning false ends the exchange as `DataLengthExceedsMaximum`. Must
    /// not throw.
    std::function<bool(std::string_view)> receiver;
};

struct URLResponse {
    /// The HTTP status; redirects are not followed.
    int status = 0;
    std::string body;
    /// The target of a redirect; empty for other replies.
    std::string redirect = {};
};

using URLResult = std::variant<URLResponse, tavrin::URLError>;

/// HTTPS exchanges. One request is exactly one request on the wire: no retries, redirects, cookies
/// or cache. TLS 1.2 or later with a verified certificate; other URLs than https end as
/// `UnsupportedURL`. Several requests may be in flight.
///
/// Main thread. Destroying the session cancels its requests without calling back.
class URLSession : public tavrin::Interface {
public:
    /// A longer reply body ends as `DataLengthExceedsMaximum`.
    static constexpr std::size_t maximumReplyBytes = std::size_t{16} << 20U;

    /// A request in flight. Destroying it does not cancel the request; it may outlive the exchange.
    class Task : public tavrin::Interface {
    public:
        /// Ends the exchange with `Cancelled`, unless it has already ended.
        virtual void cancel() = 0;
    };

    /// Calls back exactly once, on the caller's thread, never before this returns, with the
    /// complete reply of any status or with the error.
    [[nodiscard]] virtual std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) = 0;
};

} // namespace orvel
