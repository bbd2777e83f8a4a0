// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SignInFailure.h"

#include <exception>
#include <optional>
#include <string>

namespace orvel {

/// A sign-in that came to nothing. `what()` is the generic rendering, which is logged and shown as
/// it is; `message()` is the sentence for the user.
class AuthError final : public std::exception {
public:
    explicit AuthError(std::string message);
    /// The web site itself reported an error.
    explicit AuthError(tavrin::SignInFailure failure);

    [[nodiscard]] const std::string& message() const { return message_; }
    /// Only when the web site itself reported an error.
    [[nodiscard]] const std::optional<tavrin::SignInFailure>& failure() const { return failure_; }
    [[nodiscard]] const char* what() const noexcept override { return rendering_.c_str(); }

private:
    std::string message_;
    std::optional<tavrin::SignInFailure> failure_;
    std::string rendering_;
};

} // namespace orvel
