// SPDX-License-Identifier: Apache-2.0
#include "core/SignInFailure.h"

#include "core/Text.h"

#include <utility>

namespace tavrin {

SignInFailure SignInFailure::fromCallbackError(std::string_view value) {
    if (trimmed(repairedUTF8(value)) == noAccountCode) {
        return SignInFailure(NoAccount());
    }
    return SignInFailure(Other{shownText(value)});
}

std::string SignInFailure::message() const {
    if (const auto* other = std::get_if<Other>(&reason_)) {
        return other->text;
    }
    return "That sign-in has no Orvel Agent account.";
}

} // namespace tavrin
