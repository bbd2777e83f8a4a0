// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrin {
class FileDescriptor;
}

namespace orvel::service {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// A request as received.
struct Request {
    enum class Body { Complete, TooLarge, Encoded };
    /// The account that holds the other end of the connection. A connection that is closed already
    /// counts as one of another account.
    enum class Sender { Own, Other, Undetermined };

    std::string method;
    /// Percent-decoded, without the query. Unchanged if it is wrongly encoded.
    std::string path;
    /// Still encoded, without the question mark.
    std::string query;
    Headers headers;
    /// Empty unless `bodyState` is `Complete`.
    std::string body;
    Body bodyState = Body::Complete;
    Sender sender = Sender::Undetermined;

    /// Sets path and query.
    void setTarget(std::string_view target);

    /// The value of the header. Names are compared without case. No value if the header is missing
    /// or was sent more than once.
    [[nodiscard]] std::optional<std::string_view> header(std::string_view name) const;

    /// The value of the cookie, or empty.
    [[nodiscard]] std::string_view cookie(std::string_view name) const;

    /// Whether the body has that type. Parameters of the type are ignored.
    [[nodiscard]] bool hasContentType(std::string_view type) const;

    /// The percent-decoded value of the query item, which may contain any bytes. No value if the
    /// item is missing, occurs more than once or is wrongly encoded.
    [[nodiscard]] std::optional<std::string> queryValue(std::string_view name) const;

    /// The same for a form's body, where "+" means a space.
    [[nodiscard]] std::optional<std::string> formValue(std::string_view name) const;
};

/// A response, and how to send it.
struct Reply {
    enum class Delivery {
        Complete,
        /// Headers for the whole body, then half of it, then the connection closes.
        CutOff,
        /// The connection is reset before the first byte is sent.
        Reset,
    };

    int status = 200;
    std::string contentType = "application/json";
    Headers headers = {};
    std::string body = {};
    /// Sent in place of `body`, if not null: the first `fileSize` bytes of an open file. It is read
    /// while it is sent, so that a slow client costs little memory.
    std::shared_ptr<const tavrin::FileDescriptor> file = {};
    std::uint64_t fileSize = 0;
    Delivery delivery = Delivery::Complete;
    /// Why the request failed, for the log only.
    std::string failure = {};
};

/// Compares without the case of ASCII letters.
[[nodiscard]] bool equalsIgnoringCase(std::string_view left, std::string_view right);

} // namespace orvel::service
