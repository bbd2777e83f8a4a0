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

/// A set of endpoints. A group of endpoints adds itself with a function of its own; after that the
/// router only reads and may be used from several threads.
class Router final {
public:
    enum class Access { Open, BearerToken };
    /// Answers one request, or throws `Refusal`.
    using Action = std::function<Reply(const Request&)>;

    /// The tokens must outlive the router.
    explicit Router(const BearerTokens& tokens) : tokens_(tokens) {}

    /// A path that ends in a slash and a star stands for every one with something else in place of
    /// the star, but for those that have been added themselves. There is no slash in it.
    void add(std::string method, std::string path, Access access, Action action);

    /// The path that was added for this one; no value when there is none.
    [[nodiscard]] std::optional<std::string> addedPath(std::string_view path) const;
    [[nodiscard]] bool hasPath(std::string_view path) const { return find(path) != paths_.end(); }

    /// Whether the path is one of those whose requests prove themselves with a bearer token only.
    [[nodiscard]] bool wantsBearerToken(std::string_view path) const;

    /// Checks the request and carries it out. Never throws: whatever goes wrong is a reply.
    [[nodiscard]] Reply serve(const Request& request) const;

private:
    struct Endpoint {
        Access access;
        Action action;
    };
    using Methods = std::map<std::string, Endpoint, std::less<>>;
    using Paths = std::map<std::string, Methods, std::less<>>;

    [[nodiscard]] Paths::const_iterator find(std::string_view path) const;
    [[nodiscard]] Reply carriedOut(const Request& request) const;

    const BearerTokens& tokens_;
    Paths paths_;
};

} // namespace orvel::service
