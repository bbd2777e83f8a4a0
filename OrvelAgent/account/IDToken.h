// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace orvel {

/// The user id in an ID token of the identity provider, a JSON Web Token (RFC 7519). Empty if the
/// token is not one. The signature is not checked: the service does that.
[[nodiscard]] std::string userIDOf(std::string_view idToken);

} // namespace orvel
