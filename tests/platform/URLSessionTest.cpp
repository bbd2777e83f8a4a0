// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every URL session: the fake and this system's.
#include "platform/URLSession.h"

#include "core/Errors.h"
#include "tests/platform/RealURLSession.h"
#include "tests/platform/URLSessionCalls.h"
#include "tests/support/LocalServer.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeURLSession.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvel::test {

namespace {

using Connection = LocalServer::Connection;
using tavrin::URLError;
using tavrin::URLErrorCode;

/// Both servers never answer "/hang", cut off "/lost", and answer other paths with the status and
/// body they contain: "/404/body".
struct RealFixture {
    RealFixture()
        : server([](Connection& connection) {
              const std::string target = connection.readRequest().line.substr(4);
              if (target.starts_with("/hang")) {
                  connection.waitForEnd();
              } else if (target.starts_with("/lost")) {
                  connection.reset();
              } else {
                  connection.reply(
                      std::stoi(target.substr(1, 3)), target.substr(5, target.find(' ') - 5));
              }
          }),
          session(makeRealURLSession({written(folder / "pem", server.authority())})) {}

    [[nodiscard]] std::string url(const std::string& path) const { return server.url(path); }

    TemporaryDirectory folder;
    LocalServer server;
    std::unique_ptr<URLSession> session;
};

struct FakeFixture {
    FakeFixture() {
        auto fake = std::make_unique<FakeURLSession>();
        fake->setHandler([](const URLRequest& request) -> FakeURLSession::Answer {
            const std::string path = request.url.substr(std::string("https://host").size());
            if (path.starts_with("/hang")) {
                return std::nullopt;
            }
            if (path.starts_with("/lost")) {
                return URLError(URLErrorCode::NetworkConnectionLost, "Lost.");
            }
            return URLResponse{std::stoi(path.substr(1, 3)), path.substr(5)};
        });
        session = std::move(fake);
    }

    [[nodiscard]] std::string url(const std::string& path) const { return "https://host" + path; }

    std::unique_ptr<URLSession> session;
};

template <typename Fixture>
class URLSessionTest : public testing::Test {
protected:
    URLSession& session() { return *fixture_.session; }
    URLRequest request(const std::string& path) { return get(fixture_.url(path)); }

    /// Waits until all pending results have arrived.
    void settle() {
        Exchange last;
        last.start(session(), request("/200/last"));
        last.result();
        QCoreApplication::processEvents();
    }

    Fixture fixture_;
};

using Fixtures = testing::Types<RealFixture, FakeFixture>;
TYPED_TEST_SUITE(URLSessionTest, Fixtures);

} // namespace

TYPED_TEST(URLSessionTest, GivesTheReplyOfAnyStatus) {
    for (const int status : {200, 302, 404, 500}) {
        EXPECT_EQ(
            reply(resultOf(this->session(), this->request("/" + std::to_string(status) + "/body"))),
            std::pair(status, std::string("body")));
    }
}

TYPED_TEST(URLSessionTest, GivesTheErrorWithoutAReply) {
    const URLResult result = resultOf(this->session(), this->request("/lost"));
    EXPECT_EQ(errorCode(result), URLErrorCode::NetworkConnectionLost);
}

TYPED_TEST(URLSessionTest, AReceiverGetsOnlyTheBodyOfASuccess) {
    for (const int status : {200, 404, 500}) {
        std::string received;
        URLRequest request = this->request("/" + std::to_string(status) + "/body");
        request.receiver = [&received](std::string_view piece) {
            received += piece;
            return true;
        };
        const URLResult result = resultOf(this->session(), std::move(request));
        EXPECT_EQ(received, status == 200 ? "body" : "");
        EXPECT_EQ(reply(result), std::pair(status, std::string(status == 200 ? "" : "body")));
    }
}

TYPED_TEST(URLSessionTest, AReceiverMayEndTheExchange) {
    URLRequest request = this->request("/200/body");
    request.receiver = [](std::string_view) {
        return false;
    };
    EXPECT_EQ(
        errorCode(resultOf(this->session(), std::move(request))),
        URLErrorCode::DataLengthExceedsMaximum);
}

TYPED_TEST(URLSessionTest, RefusesAllButHTTPS) {
    for (const char* url : {"http://127.0.0.1/200/x", "ftp://h/", "file:///etc/passwd", "h", ""}) {
        EXPECT_EQ(errorCode(resultOf(this->session(), get(url))), URLErrorCode::UnsupportedURL);
    }
}

TYPED_TEST(URLSessionTest, NeverCallsBackBeforeStartReturns) {
    for (const URLRequest& request : {this->request("/200/x"), get("http://127.0.0.1/")}) {
        Exchange exchange;
        exchange.start(this->session(), request);
        EXPECT_TRUE(exchange.results.empty());
        exchange.result();
    }
}

TYPED_TEST(URLSessionTest, CallsBackExactlyOnce) {
    Exchange exchange;
    exchange.start(this->session(), this->request("/200/x"));
    exchange.result();
    exchange.task->cancel();
    this->settle();
    EXPECT_EQ(exchange.results.size(), 1U);
    EXPECT_TRUE(reply(exchange.result()));
}

TYPED_TEST(URLSessionTest, CancellingEndsTheExchange) {
    Exchange exchange;
    exchange.start(this->session(), this->request("/hang"));
    exchange.task->cancel();
    EXPECT_TRUE(exchange.results.empty());
    EXPECT_EQ(errorCode(exchange.result()), URLErrorCode::Cancelled);
    exchange.task->cancel();
    this->settle();
    EXPECT_EQ(exchange.results.size(), 1U);
}

TYPED_TEST(URLSessionTest, CancellingBeforeTheCompletionDropsTheReply) {
    Exchange exchange;
    exchange.start(this->session(), this->request("/200/x"));
    exchange.task->cancel();
    EXPECT_EQ(errorCode(exchange.result()), URLErrorCode::Cancelled);
    this->settle();
    EXPECT_EQ(exchange.results.size(), 1U);
}

TYPED_TEST(URLSessionTest, DestroyingTheTaskDoesNotCancel) {
    Exchange exchange;
    exchange.start(this->session(), this->request("/200/x"));
    exchange.task.reset();
    EXPECT_TRUE(reply(exchange.result()));
}

TYPED_TEST(URLSessionTest, ExchangesInFlightDoNotWaitForEachOther) {
    Exchange hanging;
    Exchange first;
    Exchange second;
    hanging.start(this->session(), this->request("/hang"));
    first.start(this->session(), this->request("/200/first"));
    second.start(this->session(), this->request("/200/second"));
    EXPECT_EQ(reply(second.result()), std::pair(200, std::string("second")));
    EXPECT_EQ(reply(first.result()), std::pair(200, std::string("first")));
    EXPECT_TRUE(hanging.results.empty());
    hanging.task->cancel();
    EXPECT_EQ(errorCode(hanging.result()), URLErrorCode::Cancelled);
}

TYPED_TEST(URLSessionTest, DestroyingTheSessionNeverCallsBack) {
    Exchange hanging;
    Exchange cancelled;
    hanging.start(this->session(), this->request("/hang"));
    cancelled.start(this->session(), this->request("/hang"));
    cancelled.task->cancel();
    this->fixture_.session.reset();
    hanging.task->cancel();
    QCoreApplication::processEvents();
    EXPECT_TRUE(hanging.results.empty());
    EXPECT_TRUE(cancelled.results.empty());
}

TYPED_TEST(URLSessionTest, ACompletionMayDestroyTheSession) {
    for (const char* path : {"/200/x", "/hang"}) {
        TypeParam fixture;
        const auto task = fixture.session->start(
            get(fixture.url(path)), [&fixture](const URLResult&) { fixture.session.reset(); });
        if (std::string(path) == "/hang") {
            task->cancel();
        }
        while (fixture.session) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }
}

TYPED_TEST(URLSessionTest, ACompletionMayStartTheNextExchange) {
    Exchange next;
    const auto task = this->session().start(this->request("/200/x"), [&](const URLResult&) {
        next.start(this->session(), this->request("/201/next"));
    });
    EXPECT_EQ(reply(next.result()), std::pair(201, std::string("next")));
}

} // namespace orvel::test
