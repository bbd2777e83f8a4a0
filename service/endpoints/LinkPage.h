// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/accounts/Account.h"

#include <vector>

namespace orvel::service {

class AuthorizationCodes;
class Router;

/// Adds the sign-in page at "/link", where the user chooses an account, and the page that passes
/// the choice to the agent. Both arguments must outlive the router.
void addLinkPage(Router& router, const std::vector<Account>& accounts, AuthorizationCodes& codes);

} // namespace orvel::service
