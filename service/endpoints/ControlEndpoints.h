// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/fwd.hpp>

#include <functional>

namespace orvel::service {

class FaultScript;
class IdentityProvider;
class Router;

/// Adds the endpoints below "/control", for test programs that cannot call `LocalService` directly:
/// faults, the end of sessions, and counts. Script and provider must outlive the router.
void addControlEndpoints(
    Router& router,
    FaultScript& faults,
    IdentityProvider& provider,
    std::function<boost::json::object()> statistics);

} // namespace orvel::service
