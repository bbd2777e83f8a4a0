// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel::service {

class AuthorizationCodes;
class BearerTokens;
class IdentityProvider;
class Router;

/// Adds the exchange of an authorization code, and the profile. The arguments must outlive the
/// router.
void addAccountEndpoints(
    Router& router,
    AuthorizationCodes& codes,
    IdentityProvider& provider,
    const BearerTokens& tokens);

} // namespace orvel::service
