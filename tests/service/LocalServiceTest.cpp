// SPDX-License-Identifier: Apache-2.0
#include "service/LocalService.h"

#include "service/http/TrafficCapture.h"
#include "service/records/RecordStore.h"
#include "service/support/ServiceError.h"
#include "tests/service/ServiceTest.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

namespace orvel::test {
namespace {

using LocalServiceTest = ServiceTest;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(LocalServiceTest, IsTrustedByBothNamesThroughItsAuthority) {
    start();
    auto client = this->client();
    EXPECT_EQ(200, client.get("/").status);

    client.url = "https://localhost:" + std::to_string(service_->port());
    const auto reply = client.get("/");

    EXPECT_EQ(200, reply.status) << reply.problem;
}

TEST_F(LocalServiceTest, IsNotTrustedThroughAnotherAuthority) {
    start();
    options_.certificates = directory_ / "others";
    const service::LocalService other(options_);
    auto client = this->client();
    client.caFile = other.caFile();

    EXPECT_EQ(CURLE_PEER_FAILED_VERIFICATION, client.get("/").outcome);
}

TEST_F(LocalServiceTest, RefusesRequestsWithoutAnAcceptedToken) {
    options_.tokens = {"first", "second"};
    start();
    auto client = this->client();
    client.token.clear();
    const std::vector<std::string> headers{
        "X-Nothing: 1",
        "Authorization: first",
        "Authorization: Basic first",
        "Authorization: Bearer",
        "Authorization: Bearer third",
        "Authorization: Bearer firs",
        "Authorization: Bearer first second",
    };
    for (const auto& header : headers) {
        SCOPED_TRACE(header);

        const auto reply =
            client.send("POST", digestPath, {header, "Content-Type: application/json"}, "{}");

        EXPECT_EQ(401, reply.status);
        EXPECT_EQ(false, reply.json().at("ok"));
        EXPECT_EQ("unauthorized", reply.code());
    }
}

TEST_F(LocalServiceTest, AcceptsEachOfItsTokens) {
    options_.tokens = {"first", "second"};
    start();
    auto client = this->client();
    for (const auto* token : {"first", "second"}) {
        client.token = token;
        EXPECT_EQ(200, client.post(digestPath, "{}").status) << token;
    }
}

TEST_F(LocalServiceTest, AcceptsOnlySessionsWhenItHasNoToken) {
    options_.tokens = {};
    start();
    auto client = this->client();
    for (const auto* token : {"", "any-token", "token"}) {
        client.token = token;
        EXPECT_EQ("unauthorized", client.post(digestPath, "{}").code()) << token;
    }

    client.token = service_->signIn("sample-account-1").idToken;
    EXPECT_EQ(200, client.post(digestPath, "{}").status);
}

TEST_F(LocalServiceTest, AnswersAnExpiredTokenAsAnExpiredSession) {
    start();
    service_->expireToken("token");

    const auto reply = client().post(ingestPath, batch({"a"}));

    EXPECT_EQ(401, reply.status);
    EXPECT_EQ("session_expired", reply.code());
    EXPECT_EQ(0U, service_->storedCount());
}

TEST_F(LocalServiceTest, AnswersUnknownPathsInTheEnvelope) {
    start();
    const std::vector<std::string> paths{
        "/api", "/api/v1/context/ingest/", "/api%0A", "//", "/control/stats"};
    for (const auto& path : paths) {
        const auto reply = client().get(path);
        EXPECT_EQ(404, reply.status) << path;
        EXPECT_EQ("not_found", reply.code()) << path;
    }
}

TEST_F(LocalServiceTest, AnswersOtherMethodsInTheEnvelope) {
    start();
    for (const auto* method : {"GET", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
        const auto reply = client().send(method, ingestPath, {});
        EXPECT_EQ(405, reply.status) << method;
        EXPECT_EQ("method_not_allowed", reply.code()) << method;
        EXPECT_THAT(reply.headers, HasSubstr("Allow: POST\r\n")) << method;
    }
}

TEST_F(LocalServiceTest, AnswersMalformedHTTPInTheEnvelope) {
    start();
    const auto method = client().send("BREW", digestPath, {});
    EXPECT_EQ(400, method.status);
    EXPECT_EQ("invalid_request", method.code());

    const auto path = client().get("/" + std::string(9000, 'a'));
    EXPECT_EQ(414, path.status);
    EXPECT_EQ("uri_too_long", path.code());
}

TEST_F(LocalServiceTest, RefusesBodiesThatAreNotJSON) {
    start();
    const std::vector<std::vector<std::string>> cases{
        {"Content-Type:"},
        {"Content-Type: text/plain"},
        {"Content-Type: application/json-patch"},
        {"Content-Type: application/x-www-form-urlencoded"},
        {"Content-Type: multipart/form-data; boundary=x"},
        {"Content-Type: application/json", "Content-Encoding: gzip"},
        {"Content-Type: application/json", "Content-Encoding: unheard-of"},
    };
    for (const auto& headers : cases) {
        SCOPED_TRACE(testing::PrintToString(headers));
        const auto reply = client().send("POST", digestPath, headers, "{}");
        EXPECT_EQ(415, reply.status);
        EXPECT_EQ("unsupported_media_type", reply.code());
    }
}

TEST_F(LocalServiceTest, AcceptsAContentTypeWithParameters) {
    start();
    const auto reply =
        client().send("POST", digestPath, {"Content-Type: Application/JSON ; charset=utf-8"}, "{}");
    EXPECT_EQ(200, reply.status);
}

TEST_F(LocalServiceTest, RefusesABodyThatIsTooLarge) {
    start();
    constexpr std::size_t limit = std::size_t(16) * 1024 * 1024;
    const std::string justRight = "{}" + std::string(limit - 2, ' ');
    const std::string json = "Content-Type: application/json";
    EXPECT_EQ(200, client().post(digestPath, justRight).status);

    for (const auto& extra :
         {std::string("X-Nothing: 1"), std::string("Transfer-Encoding: chunked")}) {
        const auto reply = client().send("POST", digestPath, {json, extra}, justRight + " ");
        EXPECT_EQ(413, reply.status) << extra;
        EXPECT_EQ("payload_too_large", reply.code()) << extra;
    }
}

TEST_F(LocalServiceTest, RefusesALargeBodyWithoutAToken) {
    start();
    const std::string large = "{}" + std::string(100'000, ' ');
    auto client = this->client();
    client.token = "wrong";
    EXPECT_EQ(401, client.post(digestPath, large).status);

    client.token.clear();
    EXPECT_EQ(413, client.post("/api/v1/auth/device/token", large).status);
    EXPECT_EQ(413, client.post("/identity/v1/accounts:signInWithCustomToken", large).status);
}

TEST_F(LocalServiceTest, AnswersAnExpiredTokenWhileTheBodyIsStillSent) {
    start();
    service_->expireToken("token");

    const auto reply = client().post(ingestPath, std::string(4'000'000, ' '));

    EXPECT_EQ("session_expired", reply.code()) << reply.problem;
}

TEST_F(LocalServiceTest, RefusesRequestsForAnotherHost) {
    start();
    const std::vector<std::string> hosts{
        "Host: evil.example",
        "Host: 127.0.0.1.evil.example:443",
        "Host: localhost.evil.example",
        "Host: 127.0.0.2",
        "Host: localhost:evil.example",
        "Host: 127.0.0.1:443:evil.example",
        "Host:",
    };
    for (const auto& host : hosts) {
        for (const auto* path : {"/", digestPath}) {
            const auto reply = client().send("GET", path, {host});
            EXPECT_EQ(421, reply.status) << host << path;
            EXPECT_EQ("misdirected_request", reply.code()) << host << path;
        }
    }
}

TEST_F(LocalServiceTest, AnswersFailuresOfItsStoreInTheEnvelope) {
    start();
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(options_.store.c_str(), &database));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, "DROP TABLE records", nullptr, nullptr, nullptr));
    sqlite3_close(database);

    const auto reply = client().post(ingestPath, batch({"a"}));

    EXPECT_EQ(500, reply.status);
    EXPECT_EQ("internal_error", reply.code());
}

TEST_F(LocalServiceTest, ReportsTheReasonOfAFailureInItsLogOnly) {
    std::string log;
    options_.log = [&log](std::string_view line) {
        log.append(line).append("\n");
    };
    start();
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(options_.store.c_str(), &database));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, "DROP TABLE id_tokens", nullptr, nullptr, nullptr));
    sqlite3_close(database);
    auto client = this->client();
    client.token = "orvel-id-unknown";

    const auto reply = client.post(digestPath, "{}");
    service_->stop();

    EXPECT_EQ(500, reply.status);
    EXPECT_THAT(reply.body, Not(HasSubstr(directory_.path().string())));
    EXPECT_THAT(reply.body, Not(HasSubstr("id_tokens")));
    EXPECT_THAT(log, HasSubstr("500: The store " + options_.store.string() + " failed: "));
}

TEST_F(LocalServiceTest, KeepsItsRecordsAfterARestart) {
    start();
    ASSERT_EQ(200, client().post(ingestPath, batch({"a", "b"})).status);

    start();

    EXPECT_EQ(2U, service_->storedCount());
    EXPECT_EQ(0, client().post(ingestPath, batch({"a", "b"})).data().at("activitiesWritten"));
}

TEST_F(LocalServiceTest, RestartsOnTheSamePort) {
    start();
    const auto port = service_->port();
    const auto client = this->client();
    service_->stop();
    EXPECT_EQ(CURLE_COULDNT_CONNECT, client.get("/").outcome);

    service_->start();

    EXPECT_EQ(port, service_->port());
    EXPECT_EQ(200, client.get("/").status);
}

TEST_F(LocalServiceTest, ReportsThatThePortIsInUse) {
    start();
    options_.store = directory_ / "other.sqlite";
    options_.port = service_->port();
    service::LocalService other(options_);
    try {
        other.start();
        FAIL() << "It started.";
    } catch (const service::ServiceError& error) {
        EXPECT_TRUE(std::holds_alternative<service::ServiceError::Listen>(error.error()));
        EXPECT_EQ(
            "Could not listen on 127.0.0.1 port " + std::to_string(service_->port()) +
                ": Address already in use.",
            std::string(error.what()));
    }
}

TEST_F(LocalServiceTest, ServesSeveralClientsAtOnce) {
    start();
    constexpr int clients = 8;
    constexpr int batches = 5;
    std::atomic<std::int64_t> written = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < clients; ++index) {
        threads.emplace_back([&, index] {
            for (int round = 0; round < batches; ++round) {
                const auto own = std::to_string(index) + "-" + std::to_string(round);
                const auto shared = "shared-" + std::to_string(round);
                const auto reply = client().post(ingestPath, batch({own, shared}));
                EXPECT_EQ(200, reply.status) << reply.problem;
                written += reply.data().at("activitiesWritten").as_int64();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    constexpr std::size_t distinct = clients * batches + batches;
    EXPECT_EQ(distinct, service_->storedCount());
    EXPECT_EQ(distinct, static_cast<std::size_t>(written));
    EXPECT_EQ(std::size_t(clients) * batches, service_->requestCount(ingestPath));
}

TEST_F(LocalServiceTest, CountsRequestsOfTheContract) {
    options_.hasControl = true;
    start();
    static_cast<void>(client().post(digestPath, "{}"));
    static_cast<void>(client().post(ingestPath, "nonsense"));
    static_cast<void>(client().get("/nowhere"));
    static_cast<void>(client().get("/"));
    static_cast<void>(client().get("/control/stats"));

    EXPECT_EQ(3U, service_->requestCount());
    EXPECT_EQ(1U, service_->requestCount(digestPath));
    EXPECT_EQ(1U, service_->requestCount(ingestPath));
    EXPECT_EQ(0U, service_->requestCount("/nowhere"));
}

TEST_F(LocalServiceTest, CapturesRequestsWithoutTheirToken) {
    options_.capture = directory_ / "traffic";
    options_.tokens = {"very-secret"};
    start();
    auto client = this->client();
    client.token = "very-secret";
    client.cookie = "name=also-secret";

    static_cast<void>(client.post(digestPath, R"({"first":1})"));
    static_cast<void>(client.post(ingestPath, R"({"second":2})"));

    const auto traffic = contentOf(*options_.capture);
    EXPECT_THAT(traffic, HasSubstr("POST /api/v1/context/handle-digest\r\n"));
    EXPECT_THAT(traffic, HasSubstr("Content-Type: application/json\r\n"));
    EXPECT_THAT(traffic, HasSubstr("\r\n\r\n{\"first\":1}\r\n"));
    EXPECT_THAT(traffic, HasSubstr("\r\n\r\n{\"second\":2}\r\n"));
    EXPECT_THAT(traffic, Not(HasSubstr("very-secret")));
    EXPECT_THAT(traffic, Not(HasSubstr("also-secret")));
    using std::filesystem::perms;
    EXPECT_EQ(
        perms::owner_read | perms::owner_write,
        std::filesystem::status(*options_.capture).permissions());
}

TEST_F(LocalServiceTest, ARequestCannotForgeLinesOfTheCapture) {
    options_.capture = directory_ / "traffic";
    start();
    auto stranger = client();
    stranger.token.clear();
    static_cast<void>(stranger.get("/x%0d%0aPOST%20/forged-path%1b[31m%c2%9b%ff"));
    static_cast<void>(stranger.send("GET", "/x", {"A: b\x1b[31m\xc2\x9b"}));
    static_cast<void>(stranger.post(ingestPath, "\r\n\r\nPOST /forged-body\r\n\r\n{}"));
    static_cast<void>(stranger.send("GET", "/x", {"Proxy-Authorization: Basic a-password"}));
    const auto traffic = contentOf(*options_.capture);
    EXPECT_THAT(traffic, HasSubstr("GET /x  POST /forged-path [31m "));
    EXPECT_THAT(traffic, Not(HasSubstr("\nPOST /forged-path")));
    EXPECT_THAT(traffic, Not(HasSubstr("forged-body")));
    EXPECT_THAT(traffic, Not(HasSubstr("\x1b")));
    EXPECT_THAT(traffic, Not(HasSubstr("\xc2\x9b")));
    EXPECT_THAT(traffic, Not(HasSubstr("a-password")));
}

TEST_F(LocalServiceTest, StrangersCannotLetTheCaptureGrow) {
    using enum service::TrafficCapture::Sender;
    const auto file = directory_ / "traffic";
    service::TrafficCapture capture(file);
    service::Request request;
    request.method = "GET";
    request.path = digestPath;
    request.headers.emplace_back("A", std::string(60'000, 'a'));
    for (int count = 0; count < 25; ++count) {
        capture.append(request, Stranger);
    }
    EXPECT_LT(
        std::filesystem::file_size(file), service::TrafficCapture::maximumStrangerBytes + 1'000);
    EXPECT_THAT(
        contentOf(file), EndsWith("(further requests without an accepted token are left out)\r\n"));
    // The user's own requests are still written.
    request.body = R"({"own":1})";
    capture.append(request, Authorized);
    EXPECT_THAT(contentOf(file), EndsWith("\r\n\r\n{\"own\":1}\r\n"));
}

TEST_F(LocalServiceTest, LogsOneLinePerRequest) {
    std::vector<std::string> lines;
    options_.log = [&lines](std::string_view line) {
        lines.emplace_back(line);
    };
    start();
    static_cast<void>(client().post(digestPath, "{}"));
    static_cast<void>(client().get("/%1Bsecret"));
    service_->stop();

    EXPECT_THAT(
        lines,
        testing::ElementsAre("POST /api/v1/context/handle-digest 200", "GET (unknown path) 404"));
}

TEST_F(LocalServiceTest, HidesItsStoreFromOtherUsers) {
    start();
    using std::filesystem::perms;
    EXPECT_EQ(
        perms::owner_read | perms::owner_write,
        std::filesystem::status(options_.store).permissions());
}

} // namespace
} // namespace orvel::test
