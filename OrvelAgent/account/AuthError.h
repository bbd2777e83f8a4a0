// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/SignInFailure.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace orvel {

/// A failed sign-in. `what()` is the rendering for the log and the window. `message()` is the
/// sentence for the user.
class AuthError final : public std::exception {
public:
    /// `message` may be the system's: what may not be shown of it is replaced.
    explicit AuthError(std::string_view message);
    /// For an error that the web site reported.
    explicit AuthError(tavrin::SignInFailure failure);

    [[nodiscard]] const std::string& message() const { return message_; }
    /// No value unless the web site reported an error.
    [[nodiscard]] const std::optional<tavrin::SignInFailure>& failure() const { return failure_; }
    [[nodiscard]] const char* what() const noexcept override { return rendering_.c_str(); }

private:
    std::string message_;
    std::optional<tavrin::SignInFailure> failure_;
    std::string rendering_;
};

} // namespace orvel
