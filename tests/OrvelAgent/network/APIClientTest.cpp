// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/APIClient.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Deferred.h"
#include "OrvelAgent/network/AccountSession.h"
#include "OrvelAgent/network/TokenUnavailable.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "core/JSON.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::FakeBundle;
using test::FakeURLSession;
using test::runTask;
using Digest = IngestClient::Digest;

/// A body whose encoding fails.
struct Unencodable {};

void tag_invoke(const boost::json::value_from_tag&, boost::json::value&, const Unencodable&) {
    throw std::runtime_error("cannot be encoded");
}

QCoro::Task<std::optional<tavrin::Secret>> provide(std::optional<std::string> token) {
    std::optional<tavrin::Secret> secret;
    if (token) {
        secret.emplace(*std::move(token));
    }
    co_return secret;
}

QCoro::Task<std::optional<tavrin::Secret>> refuse() {
    throw std::runtime_error("no token today");
    co_return std::nullopt;
}

QCoro::Task<std::optional<tavrin::Secret>> resultOf(Deferred<std::optional<tavrin::Secret>> token) {
    co_await token.settled();
    co_return token.take();
}

QCoro::Task<> count(int* calls) {
    ++*calls;
    co_return;
}

class APIClientTest : public testing::Test {
protected:
    APIClientTest() {
        bundle_.setInfo("CFBundleDisplayName", "Test Agent");
        bundle_.setInfo("CFBundleShortVersionString", "1.2.3");
    }

    APIClient client(std::optional<std::string> token = "secret") {
        return {
            session_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            [token] { return provide(token); },
            tavrin::Seconds(300),
            [this] {
                return count(&expirations_);
            }};
    }

    QCoro::Task<Digest> send(std::optional<std::string> token = "secret") {
        return client(std::move(token))
            .send<Digest>("/digest", "POST", std::make_shared<const Empty>());
    }

    /// A session with this provider.
    AccountSession session(APIClient::TokenProvider provider) {
        return {"account", {}, std::move(provider), [this] {
                    return count(&expirations_);
                }};
    }

    QCoro::Task<Digest>
    sendAs(AccountSession session, tavrin::CancellationToken cancellation = {}) {
        return client().authorizedBy(session).send<Digest>(
            "/digest", "POST", std::make_shared<const Empty>(), std::move(cancellation));
    }

    APIError errorOf(int status, std::string body) {
        session_.enqueue(status, std::move(body));
        try {
            runTask(send());
        } catch (const APIError& error) {
            return error;
        }
        ADD_FAILURE() << "no APIError";
        return {-1, ""};
    }

    /// Uploads a batch, and returns the error for this reply.
    APIError uploadError(int status, std::string body) {
        auto records = std::make_shared<IngestClient::Records>();
        tavrin::MessageRecord record;
        record.guid = "A1B2C3D4-0001";
        record.participants = {"+14155550134", "72645", "ann.lee@example.com"};
        record.participantNames = {{"+14155550134", "Ann Lee"}};
        record.service = "iMessage";
        record.body = messageText;
        records->push_back(record);
        for (const char* text : {"ok", "a", "Bad", "center", "Gateway", "error", "no", "Please"}) {
            record.body = text;
            records->push_back(record);
        }
        session_.enqueue(status, std::move(body));
        try {
            runTask(IngestClient(client(bearerToken), "1.2.3").upload(records, 9));
        } catch (const APIError& error) {
            return error;
        }
        ADD_FAILURE() << "no APIError";
        return {-1, ""};
    }

    static inline const std::string bearerToken =
        "eyJhbGciOiJSUzI1NiJ9.c2Vzc2lvbg.dGhlLXNpZ25hdHVyZQ";
    static inline const std::string messageText = "I'll \"wait\" <outside> at 8 & bring K\u00E4se";

    FakeBundle bundle_;
    FakeURLSession session_;
    Worker worker_;
    int expirations_ = 0;
};

using APIClientDeathTest = APIClientTest;

/// A reply with a token, which must not be shown.
struct Confidence {
    static constexpr bool isSecret = true;
    std::string token;
};

Confidence
tag_invoke(const boost::json::value_to_tag<Confidence>&, const boost::json::value& json) {
    return {tavrin::stringAt(tavrin::asObject(json), "token")};
}

} // namespace

TEST_F(APIClientTest, ASuccessReturnsItsPayload) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":["a","b"]}})");
    EXPECT_EQ(runTask(send()).hints, (std::vector<std::string>{"a", "b"}));
}

TEST_F(APIClientTest, EveryRequestCarriesTheFixedHeadersInOrder) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":[]}})");
    runTask(send());
    const URLRequest& request = session_.requests().at(0);
    EXPECT_EQ(request.url, "https://api.test.example/digest");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, tavrin::Seconds(300));
    EXPECT_EQ(request.body, "{}");
    const std::vector<std::pair<std::string, std::string>> headers = {
        {"Content-Type", "application/json"},
        {"User-Agent", "Test Agent-mac/1.2.3"},
        {"x-session-policy", "7d"},
        {"Authorization", "Bearer secret"}};
    EXPECT_EQ(request.headers, headers);
}

TEST_F(APIClientTest, WithoutATokenThereIsNoAuthorizationHeader) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":[]}})");
    runTask(send(std::nullopt));
    const std::vector<std::pair<std::string, std::string>> headers = {
        {"Content-Type", "application/json"},
        {"User-Agent", "Test Agent-mac/1.2.3"},
        {"x-session-policy", "7d"}};
    EXPECT_EQ(session_.requests().at(0).headers, headers);
}

TEST_F(APIClientTest, ARequestWithoutABodyHasNone) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":[]}})");
    runTask(client().send<Digest, Empty>("/profile", "GET", nullptr));
    EXPECT_FALSE(session_.requests().at(0).body);
    EXPECT_EQ(session_.requests().at(0).headers.at(0).second, "application/json");
}

TEST_F(APIClientTest, ASuccessWithoutDataIsAnError) {
    const APIError error = errorOf(201, R"({"ok":true})");
    EXPECT_EQ(error.status(), 201);
    EXPECT_STREQ(error.what(), "Response had no data.");
}

TEST_F(APIClientTest, AReplyThatIsNotOKHasTheServicesErrorText) {
    const APIError error = errorOf(200, R"({"ok":false,"error":"nope"})");
    EXPECT_EQ(error.status(), 200);
    EXPECT_STREQ(error.what(), "nope");
}

TEST_F(APIClientTest, AnEmptyErrorTextIsDescribedByItsStatus) {
    EXPECT_STREQ(errorOf(409, R"({"ok":false,"error":""})").what(), "HTTP 409");
}

TEST_F(APIClientTest, AnEnvelopeWithoutErrorTextShowsTheBytes) {
    EXPECT_EQ(errorOf(409, R"({"ok":false})").body(), R"({"ok":false})");
}

TEST_F(APIClientTest, APageInsteadOfAnEnvelopeIsCutToFiveHundredCharacters) {
    const std::string page = "<html>" + std::string(600, 'x') + "</html>";
    const APIError error = errorOf(502, page);
    EXPECT_EQ(error.status(), 502);
    EXPECT_EQ(error.body(), page.substr(0, 500));
}

TEST_F(APIClientTest, GraphemeClustersAreCounted) {
    std::string family;
    std::string expected;
    for (int i = 0; i < 501; ++i) {
        const std::string character = i % 2 == 0 ? "\r\n" : "e\xCC\x81";
        family += character;
        if (i < 500) {
            expected += character;
        }
    }
    EXPECT_EQ(errorOf(502, family).body(), expected);
}

TEST_F(APIClientTest, AReplyThatIsNotTextHasAnEmptyBody) {
    const APIError error = errorOf(502, "\xff\xfe");
    EXPECT_EQ(error.body(), "");
    EXPECT_STREQ(error.what(), "HTTP 502");
}

TEST_F(APIClientTest, DataOfTheWrongTypeShowsTheRawReply) {
    const std::string reply = R"({"ok":true,"data":{"hints":7}})";
    const APIError error = errorOf(200, reply);
    EXPECT_EQ(error.status(), 200);
    EXPECT_EQ(error.body(), reply);
}

TEST_F(APIClientTest, AnEmptyReplyIsDescribedByItsStatus) {
    EXPECT_STREQ(errorOf(500, "").what(), "HTTP 500");
}

TEST_F(APIClientTest, ARedirectIsAnErrorAndIsNotFollowed) {
    EXPECT_EQ(errorOf(302, "").status(), 302);
    EXPECT_EQ(session_.requests().size(), 1U);
}

TEST_F(APIClientTest, AnExpiredSessionRunsTheHandlerOnceAndIsStillAnError) {
    const APIError error = errorOf(401, R"({"ok":false,"error":"gone","code":"session_expired"})");
    EXPECT_STREQ(error.what(), "gone");
    EXPECT_EQ(expirations_, 1);
    EXPECT_EQ(session_.requests().size(), 1U);
}

TEST_F(APIClientTest, OtherRefusalsDoNotRunTheHandler) {
    errorOf(401, R"({"ok":false,"error":"no","code":"unauthorized"})");
    errorOf(401, R"({"ok":false,"error":"no"})");
    errorOf(401, "session_expired");
    errorOf(403, R"({"ok":false,"error":"no","code":"session_expired"})");
    EXPECT_EQ(expirations_, 0);
}

TEST_F(APIClientTest, ATransportErrorIsRethrownUnchanged) {
    session_.enqueue(tavrin::URLErrorCode::NotConnectedToInternet);
    try {
        runTask(send());
        FAIL() << "no error";
    } catch (const tavrin::URLError& error) {
        EXPECT_EQ(error.code(), tavrin::URLErrorCode::NotConnectedToInternet);
    }
}

TEST_F(APIClientTest, AFailureOfTheTokenProviderIsRethrownAndNothingIsSent) {
    const APIClient client(
        session_,
        worker_,
        Configuration(bundle_),
        "https://api.test.example",
        [] { return refuse(); },
        tavrin::Seconds(300));
    const auto send = [&client] {
        return client.send<Digest>("/digest", "POST", std::make_shared<const Empty>());
    };
    EXPECT_THROW(runTask(send()), std::runtime_error);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(APIClientTest, ARequestOfASessionIsNotSentWithoutAToken) {
    EXPECT_THROW(runTask(sendAs(session([] { return provide(std::nullopt); }))), TokenUnavailable);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(APIClientTest, ACancelledRequestDoesNotWaitForTheEndOfItsSession) {
    const Deferred<void> keychain;
    bool isExpiring = false;
    AccountSession session = this->session([] { return provide("of the session"); });
    session.onSessionExpired = [&keychain, &isExpiring] {
        isExpiring = true;
        return keychain.settled();
    };
    session_.enqueue(401, R"({"ok":false,"code":"session_expired"})");
    tavrin::CancellationSource cancellation;
    auto sending = sendAs(session, cancellation.token());
    ASSERT_TRUE(test::waitUntil([&isExpiring] { return isExpiring; }));
    cancellation.cancel();
    EXPECT_TRUE(sending.isReady());
    EXPECT_THROW(runTask(std::move(sending)), APIError);
    keychain.resolve();
}

TEST_F(APIClientTest, ARequestOfASessionCarriesItsTokenAndReportsItsExpiry) {
    int expirations = 0;
    AccountSession session = this->session([] { return provide("of the session"); });
    session.onSessionExpired = [&expirations] {
        return count(&expirations);
    };
    session_.enqueue(401, R"({"ok":false,"code":"session_expired"})");
    EXPECT_THROW(runTask(sendAs(session)), APIError);
    EXPECT_EQ(session_.requests().at(0).headers.at(3).second, "Bearer of the session");
    EXPECT_EQ(expirations, 1);
    EXPECT_EQ(expirations_, 0);
}

TEST_F(APIClientTest, AnExpiredSessionNeedsNoHandler) {
    AccountSession session = this->session([] { return provide("token"); });
    session.onSessionExpired = {};
    session_.enqueue(401, R"({"ok":false,"error":"gone","code":"session_expired"})");
    EXPECT_THROW(runTask(sendAs(session)), APIError);
}

TEST_F(APIClientTest, ACancelledRequestAsksForNoToken) {
    int calls = 0;
    const AccountSession session = this->session([&calls] {
        ++calls;
        return provide("token");
    });
    tavrin::CancellationSource source;
    source.cancel();
    EXPECT_THROW(runTask(sendAs(session, source.token())), tavrin::TaskCancelled);
    EXPECT_EQ(calls, 0);
}

TEST_F(APIClientTest, CancellingDoesNotWaitForTheToken) {
    const Deferred<std::optional<tavrin::Secret>> token;
    tavrin::CancellationSource source;
    QCoro::Task<Digest> task = sendAs(session([token] { return resultOf(token); }), source.token());
    source.cancel();
    EXPECT_THROW(runTask(std::move(task)), tavrin::TaskCancelled);
    EXPECT_TRUE(session_.requests().empty());
    token.resolve(std::nullopt);
}

TEST_F(APIClientDeathTest, AnInvalidAddressEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        runTask(client().send<Digest>("/a b", "POST", std::make_shared<const Empty>())), "");
}

TEST_F(APIClientTest, ABodyThatCannotBeEncodedIsNotSent) {
    const auto send = [&] {
        return client().send<Digest>("/digest", "POST", std::make_shared<const Unencodable>());
    };
    EXPECT_THROW(runTask(send()), std::runtime_error);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(APIClientTest, CancellingEndsARequestInFlight) {
    session_.enqueue(std::nullopt);
    tavrin::CancellationSource source;
    auto task =
        client().send<Digest>("/digest", "POST", std::make_shared<const Empty>(), source.token());
    while (session_.inFlight() == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    source.cancel();
    EXPECT_THROW(runTask(std::move(task)), tavrin::TaskCancelled);
}

TEST_F(APIClientTest, ARequestCancelledBeforeItStartsIsNotSent) {
    tavrin::CancellationSource source;
    source.cancel();
    EXPECT_THROW(
        runTask(client().send<Digest>(
            "/digest", "POST", std::make_shared<const Empty>(), source.token())),
        tavrin::TaskCancelled);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(APIClientTest, ItMayBeDestroyedWhileItsRequestIsInFlight) {
    session_.enqueue(200, R"({"ok":true,"data":{"hints":["a"]}})");
    auto task = [this] {
        const APIClient shortLived = client();
        return shortLived.send<Digest>("/digest", "POST", std::make_shared<const Empty>());
    }();
    EXPECT_EQ(runTask(std::move(task)).hints.size(), 1U);
}

TEST_F(APIClientTest, AReplyThatRepeatsTheRequestShowsOnlyItsStatus) {
    const std::string padding(600, '.');
    const std::vector<std::string> replies = {
        // A debug server: the request as it came.
        "POST /api/v1/context/ingest\r\nAuthorization: Bearer " + bearerToken + "\r\n\r\n{}",
        R"({"received":{"records":[{"body":"I'll \"wait\" <outside> at 8 & bring K)"
        "\u00E4"
        R"(se"}]}})",
        R"({"body":"I\u0027ll \u0022wait\u0022 \u003Coutside\u003E at 8 \u0026 bring K\u00e4se"})",
        // An error page of a proxy.
        "<p>I&#39;ll &quot;wait&quot; &lt;outside&gt; at 8 &amp; bring K\u00E4se</p>",
        "<pre>{&quot;participants&quot;:[&quot;+14155550134&quot;]}</pre>",
        "payload=I%27ll+%22wait%22+%3Coutside%3E+at+8+%26+bring+K%C3%A4se",
        "mailto:ann.lee%40example.com",
        // Wrapped, cut off, quoted in part, or without the country code.
        "<p>I'll \"wait\"\n    <outside> at\n    8 & bring</p>",
        "syntax error near 'ait\" <outside> at 8 & bri'",
        "no such number: (415) 555-0134",
        "The sender 72645 is not known.",
        R"(The text "ok" is too short.)",
        "<td>Please</td>",
        // The shown part ends within the token.
        std::string(480, '.') + bearerToken};
    for (const std::string& reply : replies) {
        for (const std::string& body : {reply, padding + reply}) {
            const APIError error = uploadError(502, body);
            EXPECT_EQ(error.body(), "") << body;
            EXPECT_STREQ(error.what(), "HTTP 502") << body;
        }
    }
}

TEST_F(APIClientTest, AnErrorTextThatRepeatsTheRequestIsNotShown) {
    for (const std::string& error :
         {std::string("cannot store I'll \\\"wait\\\" <outside> at 8 & bring K\u00E4se"),
          std::string("unknown handle +14155550134"),
          "bad token " + bearerToken}) {
        const APIError shown = uploadError(400, R"({"ok":false,"error":")" + error + "\"}");
        EXPECT_EQ(shown.status(), 400);
        EXPECT_STREQ(shown.what(), "HTTP 400") << error;
    }
}

TEST_F(APIClientTest, AShortTokenIsNotShown) {
    EXPECT_EQ(errorOf(401, "bad token: secret").body().find("secret"), std::string::npos);
}

TEST_F(APIClientTest, AReplyThatSharesOnlyShortWordsWithTheRequestIsShown) {
    for (const std::string& reply :
         {std::string("<html>\r\n<head><title>502 Bad Proxy</title></head>\r\n<body>\r\n<p>"
                      "<h1>502 Bad Proxy</h1></p>\r\n<hr><p>nginx</p>\r\n</body>"),
          std::string(R"({"ok":false,"code":"invalid"})"),
          std::string("Cannot POST /api/v1/context/ingest"),
          std::string("No such user"),
          std::string("ok")}) {
        EXPECT_EQ(uploadError(502, reply).body(), reply);
    }
    EXPECT_STREQ(
        uploadError(400, R"({"ok":false,"error":"mac/1.2.3 sends iMessage no longer"})").what(),
        "mac/1.2.3 sends iMessage no longer");
}

TEST_F(APIClientTest, ShortValuesOfTheRequestAreTakenOutOfTheReply) {
    for (const auto& [reply, shown] : std::vector<std::pair<std::string, std::string>>{
             {"<html>\r\n<head><title>502 Bad Gateway</title></head>\r\n<body>\r\n<center>"
              "<h1>502 Bad Gateway</h1></center>\r\n<hr><center>nginx</center>\r\n</body>",
              "<html>\r\n<head><title>502 Bad [\u2026]</title></head>\r\n<body>\r\n<[\u2026]>"
              "<h1>502 Bad [\u2026]</h1></[\u2026]>\r\n<hr><[\u2026]>nginx</[\u2026]>\r\n</body>"},
             {"Please wait a bit, no error is known.",
              "[\u2026] wait a bit, no [\u2026] is known."},
             {"Ann Lee is not known.", "[\u2026] is not known."}}) {
        EXPECT_EQ(uploadError(502, reply).body(), shown);
    }
    EXPECT_STREQ(
        uploadError(400, R"({"ok":false,"error":"The name Ann Lee is taken."})").what(),
        "The name [\u2026] is taken.");
    EXPECT_STREQ(uploadError(502, "Ann Lee").what(), "HTTP 502");
}

TEST_F(APIClientTest, AReplyWithASecretIsNotShownAsJSON) {
    for (const auto& [status, reply] : std::vector<std::pair<int, std::string>>{
             {500, R"({"ok":true,"data":{"token":"a-hidden-token"}})"},
             {500, R"( [{"token":"a-hidden-token"}])"},
             {404, R"({"token":"a-hidden-token")"},
             {200, R"({"ok":false,"data":{"token":"a-hidden-token"}})"}}) {
        session_.enqueue(status, reply);
        try {
            runTask(client().send<Confidence>("/token", "POST", std::make_shared<const Empty>()));
            ADD_FAILURE() << "no APIError";
        } catch (const APIError& error) {
            EXPECT_EQ(error.what(), "HTTP " + std::to_string(status)) << reply;
        }
    }
    session_.enqueue(502, "<html>Bad Gateway</html>");
    try {
        runTask(client().send<Confidence>("/token", "POST", std::make_shared<const Empty>()));
        ADD_FAILURE() << "no APIError";
    } catch (const APIError& error) {
        EXPECT_STREQ(error.what(), "<html>Bad Gateway</html>");
    }
}

TEST_F(APIClientTest, AStatusOutside2xxIsNeverASuccess) {
    const std::string reply = R"({"ok":true,"data":{"hints":["a"]}})";
    for (const int status : {0, 100, 199, 300, 304, 400, 401, 404, 500, 503, 599, 999}) {
        const APIError error = errorOf(status, reply);
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(error.body(), reply);
    }
}

TEST_F(APIClientTest, AnErrorTextIsCutToFiveHundredCharacters) {
    const std::string letter = "e\u0301";
    std::string text;
    for (int i = 0; i < 5'000'000; ++i) {
        text += letter;
    }
    const APIError error = errorOf(400, R"({"ok":false,"error":")" + text + "\"}");
    EXPECT_EQ(
        std::string_view(error.what()), std::string_view(text).substr(0, 500 * letter.size()));
}

TEST_F(APIClientTest, OneCharacterCannotBeArbitrarilyLong) {
    std::string text = "e";
    for (int i = 0; i < 1'000'000; ++i) {
        text += "\u0301";
    }
    EXPECT_LE(errorOf(502, text).body().size(), 32'000U);
    EXPECT_LE(errorOf(400, R"({"ok":false,"error":")" + text + "\"}").body().size(), 32'000U);
}

TEST_F(APIClientTest, ControlCharactersOfAReplyAreReplaced) {
    EXPECT_STREQ(
        errorOf(502, "a\x1B[2Jb\u009Bc\u202Ed\r\ne\tf").what(),
        "a\uFFFD[2Jb\uFFFDc\uFFFDd\r\ne\tf");
    EXPECT_STREQ(
        errorOf(400, R"({"ok":false,"error":"a\u001b[2Jb\u009bc\u202ed"})").what(),
        "a\uFFFD[2Jb\uFFFDc\uFFFDd");
}

TEST_F(APIClientTest, AByteOrderMarkIsSkipped) {
    session_.enqueue(
        200,
        "\uFEFF"
        R"({"ok":true,"data":{"hints":["a"]}})");
    EXPECT_EQ(runTask(send()).hints, std::vector<std::string>{"a"});
    EXPECT_STREQ(
        errorOf(
            400,
            "\uFEFF"
            R"({"ok":false,"error":"nope"})")
            .what(),
        "nope");
    EXPECT_STREQ(errorOf(502, "\uFEFFBad Gateway").what(), "Bad Gateway");
}

} // namespace orvel
