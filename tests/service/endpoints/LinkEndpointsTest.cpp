// SPDX-License-Identifier: Apache-2.0
#include "tests/service/SignInTest.h"

#include <gmock/gmock.h>

namespace orvel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class LinkEndpointsTest : public SignInTest {
protected:
    void SetUp() override { start(); }

    /// The page for the query.
    [[nodiscard]] ClientReply link(const std::string& query) const {
        return clientWithoutToken().get(linkPath + query);
    }

    [[nodiscard]] static std::string query(const std::string& more = "&client=mac&v=0.1.0") {
        return "?challenge=" + std::string(challenge) + more;
    }

    /// The callback URL on the page that follows a choice.
    static std::string handedOver(const ClientReply& reply) {
        EXPECT_EQ(200, reply.status) << reply.body;
        const std::string before = R"(<a id="open-agent" class="button" href=")";
        const auto start = reply.body.find(before);
        if (start == std::string::npos) {
            ADD_FAILURE() << reply.body;
            return {};
        }
        const auto url = reply.body.substr(start + before.size());
        const auto link = url.substr(0, url.find('"'));
        EXPECT_THAT(
            reply.body, HasSubstr(R"(<meta http-equiv="refresh" content="0;url=)" + link + "\">"));
        return link;
    }
};

TEST_F(LinkEndpointsTest, OffersEveryChoice) {
    const auto reply = link(query());

    EXPECT_EQ(200, reply.status);
    EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
    EXPECT_THAT(
        reply.body,
        HasSubstr(R"(<button id="account-1" name="account" value="sample-account-1">)"
                  R"(sample-1@orvel.example )"));
    EXPECT_THAT(
        reply.body,
        HasSubstr(R"(<button id="account-2" name="account" value="sample-account-2">)"));
    EXPECT_THAT(
        reply.body, HasSubstr(R"(<button id="no-account" name="error" value="no_account">)"));
    EXPECT_THAT(
        reply.body,
        HasSubstr(R"(<button id="cancel" class="plain" name="error" )"
                  R"(value="access_denied">)"));
    EXPECT_THAT(reply.body, HasSubstr(R"(name="challenge" value=")" + std::string(challenge)));
    EXPECT_THAT(reply.body, HasSubstr("Orvel Agent 0.1.0 on this computer"));
}

TEST_F(LinkEndpointsTest, ForbidsScriptsFramesAndFormsToOtherSites) {
    for (const auto& reply : {link(query()), link(""), choose("error=no_account")}) {
        EXPECT_THAT(reply.headers, HasSubstr("Content-Security-Policy: default-src 'none';"));
        EXPECT_THAT(reply.headers, HasSubstr("frame-ancestors 'none'"));
        EXPECT_THAT(reply.headers, Not(HasSubstr("script-src")));
        EXPECT_THAT(reply.headers, HasSubstr("Cache-Control: no-store\r\n"));
    }
    EXPECT_THAT(link(query()).headers, HasSubstr("form-action 'self'\r\n"));
    EXPECT_THAT(choose("error=no_account").headers, HasSubstr("form-action 'none'\r\n"));
}

// With "no-referrer", browsers would not send the form's origin.
TEST_F(LinkEndpointsTest, LetsBrowsersSendTheOriginOfAForm) {
    EXPECT_THAT(link(query()).headers, HasSubstr("Referrer-Policy: same-origin\r\n"));
}

TEST_F(LinkEndpointsTest, HandsOverACodeForTheChosenAccount) {
    const auto reply = choose("account=sample-account-2");
    const auto url = handedOver(reply);
    const std::string before = "orvelagent://callback?code=";
    ASSERT_TRUE(url.starts_with(before)) << url;
    EXPECT_THAT(reply.body, HasSubstr("You chose sample-2@orvel.example."));

    EXPECT_EQ(secondUid, exchange(url.substr(before.size())).data().at("uid"));
}

TEST_F(LinkEndpointsTest, HandsOverAnIdentityWithoutAnAccount) {
    EXPECT_EQ("orvelagent://callback?error=no_account", handedOver(choose("error=no_account")));
}

TEST_F(LinkEndpointsTest, HandsOverThatTheSignInWasCancelled) {
    EXPECT_EQ(
        "orvelagent://callback?error=access_denied", handedOver(choose("error=access_denied")));
}

TEST_F(LinkEndpointsTest, WorksUnderLocalhost) {
    auto client = clientWithoutToken();
    client.url = "https://localhost:" + std::to_string(service_->port());

    const auto reply = client.send(
        "POST",
        linkPath,
        {"Origin: " + client.url, "Content-Type: application/x-www-form-urlencoded"},
        "challenge=" + std::string(challenge) + "&error=no_account");

    EXPECT_EQ("orvelagent://callback?error=no_account", handedOver(reply));
}

TEST_F(LinkEndpointsTest, RefusesLinksWithoutAValidChallenge) {
    const std::string proper = challenge;
    const std::vector<std::string> queries{
        "",
        "?",
        "?client=mac",
        "?challenge",
        "?challenge=",
        "?challenge=" + proper.substr(1),
        "?challenge=a" + proper,
        "?challenge=" + proper.substr(1) + "+",
        "?challenge=" + proper.substr(1) + "%3d",
        "?challenge=" + proper.substr(1) + "%00",
        "?challenge=" + proper.substr(1) + "%ff",
        "?challenge=" + proper.substr(1) + "%",
        "?challenge=" + proper.substr(2) + "%c3%a9",
        "?challenge=" + proper + "&challenge=" + proper,
        "?challenge=%22%3E%3Cscript%3Ealert(1)%3C%2Fscript%3E%3Cp%20id=%22aaaaa",
        "?challenge=" + std::string(8000, 'a'),
    };
    for (const auto& query : queries) {
        SCOPED_TRACE(query);
        const auto reply = link(query);
        EXPECT_EQ(400, reply.status);
        EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
        EXPECT_THAT(reply.body, HasSubstr("The link that led here is incomplete or damaged."));
        EXPECT_THAT(reply.body, Not(HasSubstr("<script")));
        EXPECT_THAT(reply.body, Not(HasSubstr("<form")));
        EXPECT_GT(5000U, reply.body.size());
    }
    EXPECT_EQ(414, link("?challenge=" + std::string(60'000, 'a')).status);
}

TEST_F(LinkEndpointsTest, HidesInvalidVersions) {
    for (const auto* version :
         {"%3Cscript%3E", "0.1.0%3Cb%3E", "%ff", "%22", "1%00", "123456789012345678901", "%", ""}) {
        SCOPED_TRACE(version);
        const auto reply = link(query("&v=" + std::string(version) + "&client=%3Cscript%3E%ff"));
        EXPECT_EQ(200, reply.status);
        EXPECT_THAT(reply.body, HasSubstr("Orvel Agent on this computer"));
        EXPECT_THAT(reply.body, Not(HasSubstr("script")));
        EXPECT_THAT(reply.body, Not(HasSubstr("\xff")));
    }
}

TEST_F(LinkEndpointsTest, RefusesChoicesFromOtherPages) {
    const auto own = "Origin: " + service_->url();
    const auto port = std::to_string(service_->port());
    const std::vector<std::vector<std::string>> cases{
        {},
        {"Origin: null"},
        {"Origin: https://evil.example"},
        {"Origin: http://127.0.0.1:" + port},
        {"Origin: https://127.0.0.1"},
        {"Origin: https://localhost:" + port},
        {own + ".evil.example"},
        {own, "Origin: https://evil.example"},
        {own, "Sec-Fetch-Site: cross-site"},
        {own, "Sec-Fetch-Site: same-site"},
        {own, "Sec-Fetch-Site: none"},
    };
    for (const auto& headers : cases) {
        SCOPED_TRACE(testing::PrintToString(headers));
        const auto reply = postForm(
            linkPath, "challenge=" + std::string(challenge) + "&account=sample-account-1", headers);
        EXPECT_EQ(403, reply.status);
        EXPECT_THAT(reply.body, Not(HasSubstr("orvelagent:")));
    }
}

TEST_F(LinkEndpointsTest, RefusesInvalidChoices) {
    const auto proper = "challenge=" + std::string(challenge);
    const std::vector<std::string> forms{
        "",
        "account=sample-account-1",
        "challenge=short&account=sample-account-1",
        proper,
        proper + "&account=",
        proper + "&account=nobody",
        proper + "&account=sample-account-1&account=sample-account-2",
        proper + "&error=",
        proper + "&error=something",
        proper + "&error=%22%3E%3Cscript%3E",
        proper + "&account=%3Cscript%3E%ff",
        proper + "&account=" + std::string(60'000, 'a'),
    };
    for (const auto& form : forms) {
        SCOPED_TRACE(form.substr(0, 200));
        const auto reply = postForm(linkPath, form, {"Origin: " + service_->url()});
        EXPECT_EQ(400, reply.status);
        EXPECT_THAT(reply.body, Not(HasSubstr("orvelagent:")));
        EXPECT_THAT(reply.body, Not(HasSubstr("<script")));
    }
    const auto large = proper + "&account=" + std::string(1'000'000, 'a');
    EXPECT_EQ(413, postForm(linkPath, large, {"Origin: " + service_->url()}).status);
    const auto reply = clientWithoutToken().send(
        "POST",
        linkPath,
        {"Origin: " + service_->url(), "Content-Type: text/plain"},
        proper + "&account=sample-account-1");
    EXPECT_EQ(415, reply.status);
}

TEST_F(LinkEndpointsTest, OffersNoAccountIfThereIsNone) {
    options_.accounts = {};
    start();

    EXPECT_THAT(link(query()).body, Not(HasSubstr("account-1")));
    EXPECT_EQ(400, choose("account=sample-account-1").status);
    EXPECT_EQ("orvelagent://callback?error=no_account", handedOver(choose("error=no_account")));
}

TEST_F(LinkEndpointsTest, ShowsMarkupInAccountsAsText) {
    const std::string attack = "\"><script>'&";
    options_.accounts = {{attack, attack, attack}, {"plain", std::nullopt, std::nullopt}};
    start();
    const std::string escaped = "&quot;&gt;&lt;script&gt;&#39;&amp;";

    const auto page = link(query()).body;
    const auto after = choose("account=%22%3E%3Cscript%3E%27%26").body;

    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr(R"(value=")" + escaped + "\">" + escaped));
    EXPECT_THAT(page, HasSubstr("Handle: " + escaped));
    EXPECT_THAT(page, HasSubstr(R"(value="plain">plain )"));
    EXPECT_THAT(after, Not(HasSubstr("<script")));
    EXPECT_THAT(after, HasSubstr("You chose " + escaped + "."));
}

} // namespace
} // namespace orvel::test
