// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/accounts/Account.h"

#include <vector>

namespace orvel::service {

class AuthorizationCodes;
class Router;

/// The web site's sign-in page at "/link", where a person chooses an account, and the page that
/// hands the choice over to the agent. Both must outlive the router.
void addLinkPage(Router& router, const std::vector<Account>& accounts, AuthorizationCodes& codes);

} // namespace orvel::service
