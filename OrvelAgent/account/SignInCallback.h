// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"
#include "platform/WebAuthenticationSession.h"

#include <optional>
#include <string>

/// The callback of the sign-in page: a URL with the item "code" or "error". Untrusted.
namespace orvel::SignInCallback {

/// Returns the code. Throws `AuthError` if there is none, or if the page reports an error.
[[nodiscard]] tavrin::Secret code(const std::string& callback);

/// Decides about a callback that any page may have sent. No value for one with neither a code nor
/// an error. An error ends the sign-in, but only the words that we know are kept: any other text
/// could be a stranger's.
[[nodiscard]] std::optional<WebAuthenticationSession::Outcome> screened(std::string callback);

} // namespace orvel::SignInCallback
