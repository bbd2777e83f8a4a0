// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/PageAccess.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Page.h"
#include "service/endpoints/Router.h"

#include <string>
#include <utility>

namespace orvel::service {

namespace {

/// A redirect would not do: after a click on another site's page, browsers would leave the cookie
/// out of the request that follows the redirect.
Reply openedPage() {
    auto html = pageStart(
        "The pages are open in this browser",
        PageWidth::Narrow,
        "<meta http-equiv=\"refresh\" content=\"0;url=/\">\n");
    html += "<p>The link has been used up.</p>\n"
            "<a class=\"button\" href=\"/\">See what was received</a>\n";
    return pageReply(html.append(pageEnd));
}

Reply open(const Request& request, PageAccess& pages) {
    // A look at the headers must not use the link up.
    const auto cookie = request.method == "GET"
                            ? pages.open(request, request.queryValue("key").value_or(""))
                            : std::nullopt;
    if (!cookie) {
        return pages.isOpen(request) ? openedPage() : closedPage();
    }
    auto reply = openedPage();
    const auto lifetime = std::chrono::seconds(PageAccess::browserLifetime).count();
    reply.headers.emplace_back(
        "Set-Cookie",
        *cookie + "; Max-Age=" + std::to_string(lifetime) +
            "; Path=/; Secure; HttpOnly; SameSite=Strict");
    return reply;
}

} // namespace

void addPageEndpoints(Router& router, PageAccess& pages) {
    router.add(
        "GET",
        std::string(PageAccess::path),
        Router::Access::Open,
        [&pages](const Request& request) { return open(request, pages); });
}

} // namespace orvel::service
