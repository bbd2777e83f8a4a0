// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/Router.h"

#include "core/JSON.h"
#include "service/accounts/BearerTokens.h"
#include "service/accounts/PageAccess.h"
#include "service/endpoints/Page.h"
#include "service/http/Envelope.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace orvel::service {

namespace {

/// Prevents DNS rebinding: a foreign site could resolve its name to 127.0.0.1 and have a browser
/// read from this service. Such a request names the foreign host.
void requireLoopbackHost(const Request& request) {
    const auto host = request.header("Host").value_or("");
    const auto name = host.substr(0, host.find(':'));
    const auto port = host.substr(std::min(name.size() + 1, host.size()));
    const bool isLoopback = name == "127.0.0.1" || equalsIgnoringCase(name, "localhost");
    if (!isLoopback || port.find_first_not_of("0123456789") != std::string_view::npos) {
        throw Refusal(421, "misdirected_request", "This service answers for 127.0.0.1 only.");
    }
}

void requireBody(const Request& request) {
    switch (request.bodyState) {
    case Request::Body::Complete:
        return;
    case Request::Body::TooLarge:
        throw Refusal(413, "payload_too_large", "The request body is too large.");
    case Request::Body::Encoded:
        throw Refusal(415, "unsupported_media_type", "The request body must not be encoded.");
    }
}

} // namespace

void Router::add(std::string method, std::string path, Access access, Action action) {
    paths_[std::move(path)].emplace(std::move(method), Endpoint{access, std::move(action)});
}

Router::Paths::const_iterator Router::find(std::string_view path) const {
    const auto itself = paths_.find(path);
    if (itself != paths_.end()) {
        return itself;
    }
    return paths_.find(std::string(path.substr(0, path.rfind('/') + 1)) + '*');
}

std::optional<std::string> Router::addedPath(std::string_view path) const {
    const auto found = find(path);
    return found == paths_.end() ? std::nullopt : std::optional(found->first);
}

bool Router::wantsBearerToken(std::string_view path) const {
    const auto methods = find(path);
    return methods != paths_.end() &&
           std::ranges::all_of(methods->second, [](const auto& endpoint) {
               return endpoint.second.access == Access::BearerToken;
           });
}

Reply Router::serve(const Request& request) const {
    try {
        return handle(request);
    } catch (const Refusal& refusal) {
        return refused(refusal);
    } catch (const tavrin::JSONDecodingError& error) {
        return refused(Refusal::invalidRequest(error.what()));
    } catch (const std::exception& error) {
        // The reason may name files, and the client may be another account's.
        auto reply =
            refused(Refusal(500, "internal_error", "The request could not be carried out."));
        reply.failure = error.what();
        return reply;
    }
}

Reply Router::handle(const Request& request) const {
    requireLoopbackHost(request);
    const auto path = find(request.path);
    if (path == paths_.end()) {
        throw Refusal(404, "not_found", "There is nothing at this path.");
    }
    const auto endpoint = path->second.find(request.method == "HEAD" ? "GET" : request.method);
    if (endpoint == path->second.end()) {
        auto reply = refused(
            Refusal(405, "method_not_allowed", "This path does not take the request's method."));
        std::string allowed;
        for (const auto& [method, ignored] : path->second) {
            allowed += (allowed.empty() ? "" : ", ") + method;
        }
        reply.headers.emplace_back("Allow", std::move(allowed));
        return reply;
    }
    if (endpoint->second.access == Access::BearerToken) {
        tokens_.require(request);
    } else if (endpoint->second.access == Access::Page && !pages_.isOpen(request)) {
        return closedPage();
    }
    requireBody(request);
    return endpoint->second.action(request);
}

} // namespace orvel::service
