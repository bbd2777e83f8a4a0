// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/AuthError.h"

#include "OrvelAgent/base/InQuotes.h"
#include "core/Text.h"

#include <utility>
#include <variant>

namespace orvel {

namespace {

std::string
rendering(const std::string& message, const std::optional<tavrin::SignInFailure>& failure) {
    std::string text = "AuthError(message: " + inQuotes(message) + ", failure: ";
    if (!failure) {
        text += "nil";
    } else if (const auto* other = std::get_if<tavrin::SignInFailure::Other>(&failure->reason())) {
        text += "Optional(TavrinCore.SignInFailure.other(" + inQuotes(other->text) + "))";
    } else {
        text += "Optional(TavrinCore.SignInFailure.noAccount)";
    }
    text += ")";
    return text;
}

} // namespace

AuthError::AuthError(std::string_view message)
    : message_(tavrin::shownText(message)), rendering_(rendering(message_, failure_)) {}

AuthError::AuthError(tavrin::SignInFailure failure)
    : message_(failure.message()),
      failure_(std::move(failure)),
      rendering_(rendering(message_, failure_)) {}

} // namespace orvel
