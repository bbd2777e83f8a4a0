// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string>

namespace orvel {

/// A reply of the service that is not a success. `what()` is what the user is shown.
class APIError final : public std::exception {
public:
    APIError(int status, std::string body)
        : status_(status),
          body_(std::move(body)),
          description_(body_.empty() ? "HTTP " + std::to_string(status_) : body_) {}

    /// The HTTP status; 0 when the reply was not HTTP.
    [[nodiscard]] int status() const { return status_; }
    /// The service's own words, or the beginning of what it sent.
    [[nodiscard]] const std::string& body() const { return body_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    int status_;
    std::string body_;
    std::string description_;
};

} // namespace orvel
