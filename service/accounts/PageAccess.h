// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"
#include "service/support/OneTimeTokens.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// The browsers that may see the service's pages: those that have opened a one-time link.
///
/// Every account of the machine can connect to the service, but only the account that runs it sees
/// the links that it prints. A browser sends its cookies to all ports of a host, so also to servers
/// of other accounts: a cookie lets in connections of the service's own account only. Where the
/// system does not tell the account, the cookie alone decides. Nothing is stored: all access ends
/// with the process. Thread-safe.
class PageAccess final {
public:
    /// The path of the links. The query item "key" is the key.
    static constexpr std::string_view path = "/open";
    static constexpr std::string_view keyPrefix = "orvel-page-";
    static constexpr std::string_view cookiePrefix = "orvel-browser-";
    /// A link is valid for one day, a browser for seven.
    static constexpr std::chrono::hours linkLifetime{24};
    static constexpr std::chrono::hours browserLifetime{24 * 7};

    explicit PageAccess(Now now);

    /// The key of a new link.
    [[nodiscard]] std::string mintKey() { return keys_.mint({}); }

    /// Uses the key up and returns the browser's new cookie as "name=value". No value if the key
    /// is not valid any more, or the request is another account's. The name holds the port of the
    /// request, so that services at several ports do not overwrite each other's cookies.
    [[nodiscard]] std::optional<std::string> open(const Request& request, std::string_view key);

    /// Whether the request carries the cookie of such a browser and is not another account's.
    [[nodiscard]] bool isOpen(const Request& request) const;

private:
    struct Nothing {};

    OneTimeTokens<Nothing> keys_;
    OneTimeTokens<Nothing> browsers_;
};

} // namespace orvel::service
