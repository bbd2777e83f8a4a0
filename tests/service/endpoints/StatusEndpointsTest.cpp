// SPDX-License-Identifier: Apache-2.0
#include "tests/service/ServiceTest.h"

#include <gmock/gmock.h>

namespace orvel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class StatusEndpointsTest : public ServiceTest {
protected:
    void SetUp() override { start(); }

    void receive(const boost::json::object& record) {
        const auto body = boost::json::serialize(batchJSON({record}));
        ASSERT_EQ(200, client().post(ingestPath, body).status);
    }

    [[nodiscard]] std::string page() const { return client().get("/").body; }
};

TEST_F(StatusEndpointsTest, NeedsTheCookieButNoToken) {
    auto client = this->client();
    client.token.clear();

    const auto reply = client.get("/");

    client.token = "token";
    client.cookie.clear();
    EXPECT_EQ(403, client.get("/").status);

    EXPECT_EQ(200, reply.status);
    EXPECT_THAT(reply.headers, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
}

TEST_F(StatusEndpointsTest, ReportsThatNothingHasBeenReceived) {
    EXPECT_THAT(page(), HasSubstr("Nothing has been received yet."));
}

TEST_F(StatusEndpointsTest, ShowsWhatWasReceived) {
    auto record = recordJSON("a");
    record["body"] = "Shall we meet?";
    record["participantNames"] = {{"+14155550100", "Someone"}};
    receive(record);
    const auto diagnostics = R"({"client":"mac/1","lines":["one","two","three"]})";
    ASSERT_EQ(200, client().post(diagnosticsPath, diagnostics).status);

    const auto html = page();

    EXPECT_THAT(html, HasSubstr("<dt>Records</dt><dd>1</dd>"));
    EXPECT_THAT(html, HasSubstr("<dt>Batches</dt><dd>1</dd>"));
    EXPECT_THAT(html, HasSubstr("<dt>Diagnostic lines</dt><dd>3</dd>"));
    EXPECT_THAT(html, HasSubstr(">mac/1.2.3<"));
    EXPECT_THAT(html, HasSubstr(">4711<"));
    EXPECT_THAT(html, HasSubstr(">2024-03-09T17:05:42Z<"));
    EXPECT_THAT(html, HasSubstr(">received<"));
    EXPECT_THAT(html, HasSubstr(">Someone (+14155550100)<"));
    EXPECT_THAT(html, HasSubstr(">Shall we meet?<"));
}

TEST_F(StatusEndpointsTest, DistinguishesMissingFromUnavailableText) {
    receive(recordJSON("a"));
    EXPECT_THAT(page(), HasSubstr(">no text<"));

    auto record = recordJSON("b");
    record["bodyUnavailable"] = true;
    receive(record);
    EXPECT_THAT(page(), HasSubstr(">text unavailable<"));
}

TEST_F(StatusEndpointsTest, ShortensLongTexts) {
    auto record = recordJSON("a");
    std::string text;
    for (int index = 0; index < 600; ++index) {
        text += "é";
    }
    record["body"] = text;
    receive(record);

    EXPECT_THAT(page(), HasSubstr(text.substr(0, 1000) + "…<"));
}

TEST_F(StatusEndpointsTest, ShowsMarkupAsText) {
    const std::string attack = "<script>alert('1' & \"2\")</script>";
    auto record = recordJSON("a");
    record["body"] = attack;
    record["service"] = attack;
    record["participants"] = {attack};
    record["participantNames"] = {{attack, attack}};
    auto body = batchJSON({record});
    body["client"] = "mac/" + attack;
    ASSERT_EQ(200, client().post(ingestPath, boost::json::serialize(body)).status);

    const auto html = page();

    EXPECT_THAT(html, Not(HasSubstr("<script")));
    const std::string escaped =
        "&lt;script&gt;alert(&#39;1&#39; &amp; &quot;2&quot;)&lt;/script&gt;";
    EXPECT_THAT(html, HasSubstr("dir=\"auto\">" + escaped + " (" + escaped + ")<"));
    EXPECT_THAT(html, HasSubstr("class=\"fixed\">" + escaped + "<"));
    EXPECT_THAT(html, HasSubstr("class=\"fixed\">mac/" + escaped + "<"));
}

TEST_F(StatusEndpointsTest, ForbidsScriptsAndFrames) {
    const auto headers = client().get("/").headers;
    EXPECT_THAT(headers, HasSubstr("Content-Security-Policy: default-src 'none';"));
    EXPECT_THAT(headers, HasSubstr("frame-ancestors 'none'"));
    EXPECT_THAT(headers, Not(HasSubstr("script-src")));
}

} // namespace
} // namespace orvel::test
