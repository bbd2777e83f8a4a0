// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/Account.h"
#include "service/accounts/AuthorizationCodes.h"
#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Page.h"
#include "service/endpoints/Router.h"
#include "service/support/Cryptography.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace orvel::service {

namespace {

constexpr std::string_view path = "/link";
constexpr std::string_view callback = "orvelagent://callback";

/// A choice on the page other than an account.
struct NonAccountChoice {
    std::string_view error;
    std::string_view description;
};
constexpr NonAccountChoice noAccount{"no_account", "You chose an identity without an account."};
constexpr NonAccountChoice cancelled{"access_denied", "You cancelled the sign-in."};
constexpr std::array nonAccountChoices{noAccount, cancelled};

std::string paragraph(std::string_view text) {
    return "<p>" + escaped(text) + "</p>\n";
}

std::string button(
    std::string_view id,
    std::string_view name,
    std::string_view value,
    std::string_view label,
    std::string_view note) {
    std::string html = R"(<button id=")";
    html.append(id).append(R"(" name=")").append(name).append(R"(" value=")");
    html.append(escaped(value)).append("\">").append(escaped(label));
    html.append(R"( <span class="dim">)").append(escaped(note)).append("</span></button>\n");
    return html;
}

const std::string& nameOf(const Account& account) {
    return account.email ? *account.email : account.uid;
}

std::string accountButton(const Account& account, std::size_t number) {
    return button(
        "account-" + std::to_string(number),
        "account",
        account.uid,
        nameOf(account),
        account.handle ? "Handle: " + *account.handle : "Without a handle");
}

/// " 1.2.3", or empty if the query has no plausible version.
std::string shownVersion(const Request& request) {
    const auto version = request.queryValue("v").value_or("");
    const auto isPart = [](char character) {
        return (character >= '0' && character <= '9') || character == '.';
    };
    constexpr std::size_t longest = 20;
    const bool isShown =
        !version.empty() && version.size() <= longest && std::ranges::all_of(version, isPart);
    return isShown ? " " + version : "";
}

Reply refusedPage(int status, std::string_view sentence) {
    auto html = pageStart("This sign-in cannot continue", PageWidth::Narrow);
    html += paragraph(sentence);
    html += paragraph("Go back to Orvel Agent and start the sign-in again.");
    auto reply = pageReply(html.append(pageEnd));
    reply.status = status;
    return reply;
}

Reply choicePage(const Request& request, const std::vector<Account>& accounts) {
    const auto challenge = request.queryValue("challenge").value_or("");
    if (!isSHA256(challenge)) {
        return refusedPage(400, "The link that led here is incomplete or damaged.");
    }
    auto html = pageStart("Sign in to Orvel Agent", PageWidth::Narrow);
    html += paragraph(
        "Orvel Agent" + shownVersion(request) +
        " on this computer asks to sign in. Choose the account to use. No password is "
        "needed: the accounts are known to this local service only.");
    html += R"(<form method="post" action=")";
    html.append(path).append("\">\n");
    html += R"(<input type="hidden" name="challenge" value=")" + challenge + "\">\n";
    std::size_t number = 0;
    for (const auto& account : accounts) {
        html += accountButton(account, ++number);
    }
    html += button(
        "no-account",
        "error",
        noAccount.error,
        "An identity without an account",
        "As a user who has never signed up");
    html += R"(<button id="cancel" class="plain" name="error" value=")";
    html.append(cancelled.error).append("\">Cancel</button>\n</form>\n");
    return pageReply(html.append(pageEnd), "'self'");
}

/// The page redirects to the agent. If the browser blocks that, its link does the same.
Reply handOverPage(std::string_view choice, std::string_view item, std::string_view value) {
    std::string url(callback);
    url.append("?").append(item).append("=").append(value);
    const auto target = escaped(url);
    auto html = pageStart(
        "You can return to Orvel Agent",
        PageWidth::Narrow,
        R"(<meta http-equiv="refresh" content="0;url=)" + target + "\">\n");
    html += paragraph(choice);
    html += paragraph(
        "Your browser hands this over to Orvel Agent now and may ask you to allow it. If nothing "
        "happens, use this:");
    html += R"(<a id="open-agent" class="button" href=")" + target + "\">Open Orvel Agent</a>\n";
    return pageReply(html.append(pageEnd));
}

/// Whether the form was sent from our own page. Every browser sends a form's origin.
bool isFromOurPage(const Request& request) {
    const auto host = request.header("Host").value_or("");
    const auto site = request.header("Sec-Fetch-Site").value_or("same-origin");
    return request.header("Origin") == "https://" + std::string(host) && site == "same-origin";
}

Reply handOver(
    const Request& request, const std::vector<Account>& accounts, AuthorizationCodes& codes) {
    if (!isFromOurPage(request)) {
        return refusedPage(403, "The choice was not made on the page of this service.");
    }
    if (!request.hasContentType("application/x-www-form-urlencoded")) {
        return refusedPage(415, "The choice did not arrive as a form.");
    }
    auto challenge = request.formValue("challenge").value_or("");
    if (!isSHA256(challenge)) {
        return refusedPage(400, "The choice is incomplete or damaged.");
    }
    const auto choice = std::ranges::find(
        nonAccountChoices, request.formValue("error").value_or(""), &NonAccountChoice::error);
    if (choice != nonAccountChoices.end()) {
        return handOverPage(choice->description, "error", choice->error);
    }
    const auto* account = findAccount(accounts, request.formValue("account").value_or(""));
    if (account == nullptr) {
        return refusedPage(400, "The chosen account is not known.");
    }
    const auto code = codes.mint(std::move(challenge), account->uid);
    return handOverPage("You chose " + nameOf(*account) + ".", "code", code);
}

} // namespace

void addLinkEndpoints(
    Router& router, const std::vector<Account>& accounts, AuthorizationCodes& codes) {
    using enum Router::Access;
    router.add("GET", std::string(path), Page, [&accounts](const Request& request) {
        return choicePage(request, accounts);
    });
    router.add("POST", std::string(path), Page, [&accounts, &codes](const Request& request) {
        return handOver(request, accounts, codes);
    });
}

} // namespace orvel::service
