// SPDX-License-Identifier: Apache-2.0
#include "tests/service/SignInTest.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class PageEndpointsTest : public SignInTest {
protected:
    void SetUp() override { start(); }

    /// A browser that has opened no link.
    [[nodiscard]] Client stranger() const {
        auto client = this->client();
        client.token.clear();
        client.cookie.clear();
        return client;
    }

    [[nodiscard]] std::string mintPath() const {
        return service_->mintPageLink().substr(service_->url().size());
    }

    /// The "name=value" of the cookie that the reply sets, or empty.
    static std::string cookieOf(const ClientReply& reply) {
        const std::string header = "Set-Cookie: ";
        const auto start = reply.headers.find(header);
        if (start == std::string::npos) {
            return {};
        }
        const auto rest = reply.headers.substr(start + header.size());
        return rest.substr(0, rest.find(';'));
    }
};

TEST_F(PageEndpointsTest, AStrangerSeesNoPage) {
    auto record = recordJSON("a");
    record["body"] = "Shall we meet?";
    const auto body = boost::json::serialize(batchJSON({record}));
    ASSERT_EQ(200, client().post(ingestPath, body).status);
    const std::string sample = "sample-1@orvel.example";
    ASSERT_THAT(client().get("/").body, HasSubstr("Shall we meet?"));

    const auto form = "challenge=" + std::string(challenge) + "&account=sample-account-1";
    const std::vector<std::string> headers{
        "Origin: " + service_->url(), "Content-Type: application/x-www-form-urlencoded"};
    for (const auto& reply :
         {stranger().get("/"),
          stranger().get(linkPath + ("?challenge=" + std::string(challenge))),
          stranger().send("POST", linkPath, headers, form)}) {
        EXPECT_EQ(403, reply.status);
        EXPECT_THAT(reply.body, HasSubstr("Open the link that orvel-local-service printed"));
        EXPECT_THAT(reply.headers, HasSubstr("Content-Security-Policy: default-src 'none';"));
        EXPECT_THAT(reply.headers, HasSubstr("Cache-Control: no-store\r\n"));
        EXPECT_THAT(reply.headers, HasSubstr("Referrer-Policy: same-origin\r\n"));
        EXPECT_THAT(reply.body, Not(HasSubstr("Shall we meet?")));
        EXPECT_THAT(reply.body, Not(HasSubstr(sample)));
        EXPECT_THAT(reply.body, Not(HasSubstr("orvelagent:")));
        EXPECT_EQ("", cookieOf(reply));
    }
}

TEST_F(PageEndpointsTest, ALinkLetsOneBrowserIn) {
    const auto path = mintPath();

    const auto reply = stranger().get(path);

    EXPECT_EQ(200, reply.status);
    EXPECT_THAT(reply.headers, HasSubstr("Cache-Control: no-store\r\n"));
    auto browser = stranger();
    browser.cookie = cookieOf(reply);
    EXPECT_EQ(200, browser.get("/").status);
    const auto again = stranger().get(path);
    EXPECT_EQ(403, again.status);
    EXPECT_EQ("", cookieOf(again));
    // In the browser that is already in, the used link still leads to the page.
    EXPECT_EQ(200, browser.get(path).status);
}

TEST_F(PageEndpointsTest, TheCookieIsForThisServiceOnly) {
    const auto headers = stranger().get(mintPath()).headers;
    const auto port = std::to_string(service_->port());
    EXPECT_THAT(headers, HasSubstr("Set-Cookie: __Host-orvel-" + port + "=orvel-browser-"));
    EXPECT_THAT(
        headers, HasSubstr("; Max-Age=604800; Path=/; Secure; HttpOnly; SameSite=Strict\r\n"));
}

TEST_F(PageEndpointsTest, ALookAtTheHeadersDoesNotUseTheLinkUp) {
    const auto path = mintPath();
    const auto reply = stranger().send("HEAD", path, {});
    EXPECT_EQ(403, reply.status);
    EXPECT_EQ("", cookieOf(reply));

    EXPECT_NE("", cookieOf(stranger().get(path)));
}

TEST_F(PageEndpointsTest, WrongKeysOpenNothing) {
    const auto path = mintPath();
    for (const auto& wrong :
         {std::string("/open"),
          std::string("/open?key="),
          std::string("/open?key=orvel-page-"),
          path + "a",
          path.substr(0, path.size() - 1),
          path + "&key=a"}) {
        const auto reply = stranger().get(wrong);
        EXPECT_EQ(403, reply.status) << wrong;
        EXPECT_EQ("", cookieOf(reply)) << wrong;
    }
    EXPECT_NE("", cookieOf(stranger().get(path)));
}

TEST_F(PageEndpointsTest, WrongCookiesOpenNothing) {
    const auto cookie = cookieOf(stranger().get(mintPath()));
    const auto value = cookie.substr(cookie.find('=') + 1);
    auto browser = stranger();
    for (const auto& wrong :
         {std::string("__Host-orvel-1=") + value,
          std::string("orvel=") + value,
          value,
          cookie + "a",
          cookie.substr(0, cookie.size() - 1),
          "x" + cookie}) {
        browser.cookie = wrong;
        EXPECT_EQ(403, browser.get("/").status) << wrong;
    }
    browser.cookie = "other=1; " + cookie + "; another=2";
    EXPECT_EQ(200, browser.get("/").status);
}

// A browser sends its cookies to all ports of a host, so also to servers of other accounts.
TEST_F(PageEndpointsTest, NeitherCookieNorLinkLetsAnotherAccountIn) {
    std::atomic<uid_t> account = geteuid();
    options_.accountOf = [&account](std::uint16_t, std::uint16_t) {
        return std::optional<uid_t>(account);
    };
    start();
    auto browser = stranger();
    browser.cookie = cookieOf(stranger().get(mintPath()));
    ASSERT_EQ(200, browser.get("/").status);
    const auto unused = mintPath();
    const auto form = "challenge=" + std::string(challenge) + "&account=sample-account-1";
    const std::vector<std::string> headers{
        "Origin: " + service_->url(), "Content-Type: application/x-www-form-urlencoded"};

    account = geteuid() + 1;
    for (const auto& reply :
         {browser.get("/"),
          browser.get(linkPath + ("?challenge=" + std::string(challenge))),
          browser.send("POST", linkPath, headers, form),
          browser.get(unused),
          stranger().get(unused)}) {
        EXPECT_EQ(403, reply.status);
        EXPECT_EQ("", cookieOf(reply));
        EXPECT_THAT(reply.body, Not(HasSubstr("orvelagent:")));
    }

    account = geteuid();
    EXPECT_NE("", cookieOf(stranger().get(unused))) << "the other account has used the link up";
}

TEST_F(PageEndpointsTest, WithoutTheSystemsAnswerTheCookieDecides) {
    options_.accountOf = [](std::uint16_t, std::uint16_t) -> std::optional<uid_t> {
        throw std::runtime_error("not supported");
    };
    start();
    auto browser = stranger();
    EXPECT_EQ(403, browser.get("/").status);
    browser.cookie = cookieOf(stranger().get(mintPath()));
    EXPECT_EQ(200, browser.get("/").status);
}

TEST_F(PageEndpointsTest, AConnectionWhoseAccountIsNotFoundGetsNothing) {
    for (const bool throws : {false, true}) {
        bool isFirst = true;
        options_.accountOf =
            [throws, isFirst](std::uint16_t, std::uint16_t) mutable -> std::optional<uid_t> {
            if (throws && !std::exchange(isFirst, false)) {
                throw std::runtime_error("out of descriptors");
            }
            return std::nullopt;
        };
        start();
        EXPECT_EQ(403, client().get("/").status) << throws;
    }
}

TEST_F(PageEndpointsTest, ALinkIsValidForADay) {
    const auto first = mintPath();
    const auto second = mintPath();
    advance(std::chrono::hours(24) - std::chrono::seconds(1));
    EXPECT_NE("", cookieOf(stranger().get(first)));

    advance(std::chrono::seconds(1));
    EXPECT_EQ("", cookieOf(stranger().get(second)));
}

TEST_F(PageEndpointsTest, ABrowserStaysInForSevenDays) {
    auto browser = stranger();
    browser.cookie = cookieOf(stranger().get(mintPath()));
    advance(std::chrono::hours(24 * 7) - std::chrono::seconds(1));
    EXPECT_EQ(200, browser.get("/").status);

    advance(std::chrono::seconds(1));
    EXPECT_EQ(403, browser.get("/").status);
}

TEST_F(PageEndpointsTest, ARestartedServiceKnowsNoBrowser) {
    auto browser = stranger();
    browser.cookie = cookieOf(stranger().get(mintPath()));
    options_.port = service_->port();

    start();

    EXPECT_EQ(403, browser.get("/").status);
}

TEST_F(PageEndpointsTest, NeitherCaptureNorLogHoldsKeyOrCookie) {
    options_.capture = directory_ / "traffic";
    std::string log;
    options_.log = [&log](std::string_view line) {
        log.append(line).append("\n");
    };
    start();

    auto browser = stranger();
    browser.cookie = cookieOf(stranger().get(mintPath()));
    EXPECT_EQ(200, browser.get(linkPath + ("?challenge=" + std::string(challenge))).status);
    service_->stop();

    std::ifstream stream(*options_.capture, std::ios::binary);
    const std::string traffic(std::istreambuf_iterator<char>(stream), {});
    EXPECT_THAT(traffic, HasSubstr("Cookie: (left out)\r\n"));
    EXPECT_THAT(secretsIn(traffic + log), testing::IsEmpty());
    EXPECT_EQ("GET /open 200\nGET /link 200\n", log);
}

} // namespace
} // namespace orvel::test
