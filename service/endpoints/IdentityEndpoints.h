// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <string>
#include <string_view>

namespace orvel::service {

class IdentityProvider;
class Router;

/// An error in the identity provider's format, which does not use the envelope.
[[nodiscard]] Reply identityError(int status, std::string_view message);

/// Adds the identity provider's two endpoints below "/identity/v1". If `apiKey` is empty, any key
/// is accepted. The provider must outlive the router.
void addIdentityEndpoints(Router& router, IdentityProvider& provider, std::string apiKey);

} // namespace orvel::service
