// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace tavrin {

/// The reason why the web site ended a sign-in.
class SignInFailure final {
public:
    /// The user has no account with us.
    struct NoAccount {
        bool operator==(const NoAccount&) const = default;
    };
    /// Any other reason, as the site words it.
    struct Other {
        std::string text;

        bool operator==(const Other&) const = default;
    };
    using Case = std::variant<NoAccount, Other>;

    static constexpr std::string_view noAccountCode = "no_account";

    /// Parses the error of the site's callback: the known code, with surrounding white space
    /// ignored, or else the text, untrimmed, as it may be shown.
    [[nodiscard]] static SignInFailure fromCallbackError(std::string_view value);

    explicit SignInFailure(Case reason) : reason_(std::move(reason)) {}

    [[nodiscard]] const Case& reason() const { return reason_; }
    /// The sentence for the user.
    [[nodiscard]] std::string message() const;

    bool operator==(const SignInFailure&) const = default;

private:
    Case reason_;
};

} // namespace tavrin
