// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <string>
#include <string_view>

namespace orvel::service {

class IdentityProvider;
class Router;

/// A refusal in the identity provider's format, which has no envelope.
[[nodiscard]] Reply identityError(int status, std::string_view message);

/// The identity provider's two endpoints below "/identity/v1". Without an API key they take every
/// one. The provider must outlive the router.
void addIdentityEndpoints(Router& router, IdentityProvider& provider, std::string apiKey);

} // namespace orvel::service
