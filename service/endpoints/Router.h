// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

class BearerTokens;
class PageAccess;

/// A set of endpoints. Functions such as `addStatusEndpoints()` add them; after that the router is
/// immutable and may be used from several threads.
class Router final {
public:
    /// `Page` requires a browser that has opened a one-time link.
    enum class Access { Open, BearerToken, Page };
    /// Returns the reply to one request, or throws `Refusal`.
    using Action = std::function<Reply(const Request&)>;

    /// The arguments must outlive the router.
    Router(const BearerTokens& tokens, const PageAccess& pages) : tokens_(tokens), pages_(pages) {}

    /// A path that ends in "/*" matches any last segment without its own entry.
    void add(std::string method, std::string path, Access access, Action action);

    /// The added path that matches this one, or no value.
    [[nodiscard]] std::optional<std::string> addedPath(std::string_view path) const;
    [[nodiscard]] bool hasPath(std::string_view path) const { return find(path) != paths_.end(); }

    /// Whether all endpoints at the path require a bearer token.
    [[nodiscard]] bool wantsBearerToken(std::string_view path) const;

    /// Checks and handles the request. Never throws: errors are turned into replies.
    [[nodiscard]] Reply serve(const Request& request) const;

private:
    struct Endpoint {
        Access access;
        Action action;
    };
    using Methods = std::map<std::string, Endpoint, std::less<>>;
    using Paths = std::map<std::string, Methods, std::less<>>;

    [[nodiscard]] Paths::const_iterator find(std::string_view path) const;
    [[nodiscard]] Reply handle(const Request& request) const;

    const BearerTokens& tokens_;
    const PageAccess& pages_;
    Paths paths_;
};

} // namespace orvel::service
