// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/json/fwd.hpp>

#include <functional>

namespace orvel::service {

class FaultScript;
class IdentityProvider;
class Router;

/// The endpoints below "/control", for test programs that cannot call the service's functions:
/// faults, the ends of sessions, and counts. Script and provider must outlive the router.
void addControlEndpoints(
    Router& router,
    FaultScript& faults,
    IdentityProvider& provider,
    std::function<boost::json::object()> statistics);

} // namespace orvel::service
