// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/APIClient.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

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

    FakeBundle bundle_;
    FakeURLSession session_;
    Worker worker_;
    int expirations_ = 0;
};

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

} // namespace orvel
