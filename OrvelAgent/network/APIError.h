// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

namespace orvel {

/// A reply of the service that is not a success. The user sees `what()`.
class APIError final : public std::exception {
public:
    APIError(int status, std::string body)
        : status_(status),
          body_(std::move(body)),
          description_(body_.empty() ? "HTTP " + std::to_string(status_) : body_) {}

    /// The HTTP status, or 0 if the reply was not HTTP.
    [[nodiscard]] int status() const { return status_; }
    /// The error text of the service or the beginning of its reply, as it may be shown. Empty if
    /// that repeats the request.
    [[nodiscard]] const std::string& body() const { return body_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    int status_;
    std::string body_;
    std::string description_;
};

} // namespace orvel
