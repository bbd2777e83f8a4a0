// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel::service {

class AuthorizationCodes;
class BearerTokens;
class IdentityProvider;
class Router;

/// The exchange of an authorization code, and the profile. All must outlive the router.
void addAccountEndpoints(
    Router& router,
    AuthorizationCodes& codes,
    IdentityProvider& provider,
    const BearerTokens& tokens);

} // namespace orvel::service
