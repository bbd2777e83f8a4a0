// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/PageAccess.h"

#include <utility>

namespace orvel::service {

namespace {

/// With this prefix, browsers accept the cookie only from HTTPS and only for this host.
std::string cookieName(const Request& request) {
    const auto host = request.header("Host").value_or("");
    const auto colon = host.find(':');
    const auto port = colon == std::string_view::npos ? "443" : host.substr(colon + 1);
    return "__Host-orvel-" + std::string(port);
}

} // namespace

PageAccess::PageAccess(Now now)
    : keys_(std::string(keyPrefix), linkLifetime, now),
      browsers_(std::string(cookiePrefix), browserLifetime, std::move(now)) {}

std::optional<std::string> PageAccess::open(const Request& request, std::string_view key) {
    if (request.sender == Request::Sender::Other || !keys_.take(key)) {
        return std::nullopt;
    }
    return cookieName(request) + "=" + browsers_.mint({});
}

bool PageAccess::isOpen(const Request& request) const {
    return request.sender != Request::Sender::Other &&
           browsers_.isValid(request.cookie(cookieName(request)));
}

} // namespace orvel::service
