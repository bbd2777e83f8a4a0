// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/base/InQuotes.h"
#include "core/Text.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// The identity provider refused a request. `what()` is the text for the log and the window,
/// `message()` the provider's error message.
class IdentityError final : public std::exception {
public:
    explicit IdentityError(std::string_view message, std::optional<int> status = std::nullopt)
        : message_(tavrin::shownText(message)),
          status_(status),
          rendering_(
              "IdentityError(message: " + inQuotes(message_) + ", status: " +
              (status_ ? "Optional(" + std::to_string(*status_) + ")" : "nil") + ")") {}

    /// For example "INVALID_REFRESH_TOKEN". As it may be shown.
    [[nodiscard]] const std::string& message() const { return message_; }
    /// The HTTP status, if known; 0 if the reply was not HTTP.
    [[nodiscard]] std::optional<int> status() const { return status_; }
    [[nodiscard]] const char* what() const noexcept override { return rendering_.c_str(); }

private:
    std::string message_;
    std::optional<int> status_;
    std::string rendering_;
};

} // namespace orvel
