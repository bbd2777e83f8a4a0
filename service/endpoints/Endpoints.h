// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <boost/json/fwd.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// All endpoints of the service. Each function is in the file of its name and adds the paths there
/// to a router. The arguments passed by reference must outlive the router.
namespace orvel::service {

struct Account;
class AuthorizationCodes;
class BearerTokens;
class FaultScript;
class IdentityProvider;
class KnownHandles;
class PageAccess;
class RecordStore;
class Router;

/// The exchange of an authorization code, and the profile.
void addAccountEndpoints(
    Router& router,
    AuthorizationCodes& codes,
    IdentityProvider& provider,
    const BearerTokens& tokens);

/// What the agent sends: records, a request for the known handles, and diagnostics.
void addContextEndpoints(Router& router, RecordStore& store, const KnownHandles& knownHandles);

/// For test programs that cannot call `LocalService` directly: faults, the end of sessions, counts.
void addControlEndpoints(
    Router& router,
    FaultScript& faults,
    IdentityProvider& provider,
    std::function<boost::json::object()> statistics);

/// The identity provider. If `apiKey` is empty, any key is accepted.
void addIdentityEndpoints(Router& router, IdentityProvider& provider, std::string apiKey);

/// An error in the identity provider's format, which does not use the envelope.
[[nodiscard]] Reply identityError(int status, std::string_view message);

/// The sign-in page, where the user chooses an account, and the page that passes the choice to the
/// agent.
void addLinkEndpoints(
    Router& router, const std::vector<Account>& accounts, AuthorizationCodes& codes);

/// The one-time links, which let a browser see the pages.
void addPageEndpoints(Router& router, PageAccess& pages);

/// The page that lists what was received.
void addStatusEndpoints(Router& router, const RecordStore& store);

/// The regular files of the folder, read for each request. No token is required, since updates are
/// signed. Hidden files, links and subfolders are not served.
void addUpdateEndpoints(Router& router, std::filesystem::path folder);

/// The path of the update feed, if the folder has a file of that name.
inline constexpr std::string_view updateFeedPath = "/updates/appcast.xml";

} // namespace orvel::service
