// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::service {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// One request as it arrived.
struct Request {
    enum class Body { Complete, TooLarge, Encoded, Unreadable };

    std::string method;
    /// Percent-decoded, without the query.
    std::string path;
    /// As it arrived, without the question mark.
    std::string query;
    Headers headers;
    /// Empty unless `bodyState` is `Complete`.
    std::string body;
    Body bodyState = Body::Complete;

    /// The value of the only header of that name, in any spelling; no value when it is missing or
    /// sent more than once.
    [[nodiscard]] std::optional<std::string_view> header(std::string_view name) const;

    /// Whether the body is of that type, whatever the type's parameters.
    [[nodiscard]] bool hasContentType(std::string_view type) const;

    /// The percent-decoded value of the only query item of that name, any bytes it may be; no value
    /// when the item is missing, sent more than once or encoded wrongly.
    [[nodiscard]] std::optional<std::string> queryValue(std::string_view name) const;

    /// The same for the body of a form, where "+" means a space.
    [[nodiscard]] std::optional<std::string> formValue(std::string_view name) const;
};

/// What the client gets, and how.
struct Reply {
    enum class Delivery {
        Complete,
        /// The headers announce the whole body, half of it follows, the connection closes.
        CutOff,
        /// The connection is reset before the first byte.
        Reset,
    };

    int status = 200;
    std::string contentType = "application/json";
    Headers headers;
    std::string body;
    Delivery delivery = Delivery::Complete;
};

/// Whether two texts are equal but for the case of ASCII letters.
[[nodiscard]] bool equalsIgnoringCase(std::string_view left, std::string_view right);

} // namespace orvel::service
