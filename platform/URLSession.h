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
    /// Takes the body of a reply of status 200 piece by piece, in place of `URLResponse::body` and
    /// beyond its limit. On any thread; no more once the completion runs, but perhaps some pieces
    /// after `cancel`. Answering false ends the exchange as `DataLengthExceedsMaximum`. Must not
    /// throw.
    std::function<bool(std::string_view)> receiver;
};

struct URLResponse {
    /// The HTTP status; redirects arrive as they are.
    int status = 0;
    std::string body;
    /// Where a redirect leads; empty when the reply is none.
    std::string redirect = {};
};

using URLResult = std::variant<URLResponse, tavrin::URLError>;

/// HTTPS exchanges. One request is exactly one request on the wire: nothing is sent again, no
/// redirect is followed, no cookie or cache is kept. TLS 1.2 or later with a verified certificate;
/// any URL but an https one ends as `UnsupportedURL`. Several requests may be in flight.
///
/// Main thread. Destroying the session cancels what is in flight without calling back.
class URLSession : public tavrin::Interface {
public:
    /// A longer reply body ends as `DataLengthExceedsMaximum`.
    static constexpr std::size_t maximumReplyBytes = std::size_t{16} << 20U;

    /// A request in flight. Destroying it changes nothing; it may outlive the exchange.
    class Task : public tavrin::Interface {
    public:
        /// Ends the exchange at once with `Cancelled`; nothing when it has already ended.
        virtual void cancel() = 0;
    };

    /// Calls back exactly once, on the caller's thread, never before this returns: with the whole
    /// reply, whatever its status, or with the reason why there is none.
    [[nodiscard]] virtual std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) = 0;
};

} // namespace orvel
