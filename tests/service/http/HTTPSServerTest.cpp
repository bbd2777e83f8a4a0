// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTPSServer.h"

#include "core/FileDescriptor.h"
#include "service/http/CertificateAuthority.h"
#include "tests/service/Client.h"
#include "tests/support/TemporaryDirectory.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace orvel::test {
namespace {

using service::CertificateAuthority;
using service::HTTPSServer;
using service::Reply;

/// Keeps the process out of file descriptors while it exists.
class NoMoreDescriptors final {
public:
    NoMoreDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = 256;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int copy = dup(STDERR_FILENO); copy >= 0; copy = dup(STDERR_FILENO)) {
            copies_.push_back(copy);
        }
    }
    ~NoMoreDescriptors() {
        for (const int copy : copies_) {
            close(copy);
        }
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit before_{};
    std::vector<int> copies_;
};

/// Connections to the port on which nothing is sent.
class SilentConnections final {
public:
    SilentConnections(std::uint16_t port, std::size_t count) {
        for (std::size_t index = 0; index < count; ++index) {
            tavrin::FileDescriptor connection(socket(AF_INET, SOCK_STREAM, 0));
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) !=
                0) {
                throw std::system_error(errno, std::generic_category(), "connect");
            }
            connections_.push_back(std::move(connection));
        }
    }

    /// Waits for the server to close the connection.
    void waitForEnd(std::size_t index) const {
        char byte = 0;
        while (read(connections_.at(index).get(), &byte, 1) > 0) {
        }
    }

    [[nodiscard]] bool isOpen(std::size_t index) const {
        char byte = 0;
        return recv(connections_.at(index).get(), &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
    }

private:
    std::vector<tavrin::FileDescriptor> connections_;
};

/// A server whose reply describes the request. It trusts requests to "/trusted".
class RunningHTTPSServerTest : public testing::Test {
protected:
    static Reply describe(const service::Request& request) {
        using enum service::Request::Body;
        const std::string state = request.bodyState == Complete   ? ""
                                  : request.bodyState == TooLarge ? " too large"
                                                                  : " encoded";
        return {.body = request.method + " " + std::to_string(request.body.size()) + state};
    }

    RunningHTTPSServerTest() { client_.url += std::to_string(port_); }

    /// The account of the connections that are accepted from now on.
    std::atomic<uid_t> account_ = geteuid();
    TemporaryDirectory folder_;
    CertificateAuthority authority_{folder_.path(), std::chrono::system_clock::now()};
    HTTPSServer server_{
        authority_,
        {.handle = describe,
         .isTrusted = [](const service::Request& request) { return request.path == "/trusted"; },
         .accountOf =
             [this](std::uint16_t, std::uint16_t) {
                 return std::optional<uid_t>(account_);
             }}};
    std::uint16_t port_ = server_.start(0);
    Client client_{"https://127.0.0.1:", authority_.certificateFile()};
};

} // namespace

TEST_F(RunningHTTPSServerTest, AnswersWhileManyConnectionsAreSilent) {
    const SilentConnections silent(port_, 300);

    const ClientReply reply = client_.get("/");

    EXPECT_EQ(reply.status, 200) << reply.problem;
}

TEST_F(RunningHTTPSServerTest, ClosesTheOldestSilentConnectionForOneMore) {
    const SilentConnections silent(port_, HTTPSServer::maxConnections + 1);

    silent.waitForEnd(0);

    EXPECT_EQ(client_.get("/").status, 200);
}

TEST_F(RunningHTTPSServerTest, ClosesConnectionsOfOtherAccountsFirst) {
    const SilentConnections own(port_, 1);
    // After its reply, all earlier connections have been accepted.
    ASSERT_EQ(client_.get("/").status, 200);
    account_ = geteuid() + 1;
    const SilentConnections others(port_, HTTPSServer::maxConnections + 10);

    others.waitForEnd(0);
    ASSERT_EQ(client_.get("/").status, 200);

    EXPECT_TRUE(own.isOpen(0));
}

TEST_F(RunningHTTPSServerTest, ClosesNoConnectionOfItsAccountForOneOfAnother) {
    const SilentConnections own(port_, HTTPSServer::maxConnections);
    // Replaces the first of them, so all have been accepted.
    ASSERT_EQ(client_.get("/").status, 200);
    own.waitForEnd(0);
    // Fill the server for certain. They close the oldest.
    const SilentConnections last(port_, 20);
    own.waitForEnd(19);
    account_ = geteuid() + 1;
    const SilentConnections others(port_, 60);

    others.waitForEnd(59);

    EXPECT_TRUE(own.isOpen(40));
}

TEST_F(RunningHTTPSServerTest, StopsWhileConnectionsAreSilent) {
    const SilentConnections silent(port_, 10);
    EXPECT_EQ(client_.get("/").status, 200);

    server_.stop();

    silent.waitForEnd(0);
    EXPECT_EQ(client_.get("/").outcome, CURLE_COULDNT_CONNECT);
}

TEST_F(RunningHTTPSServerTest, LimitsTheSizeOfAllHeaders) {
    const std::string half(30'000, 'a');
    EXPECT_EQ(client_.send("GET", "/", {"A: " + half, "B: " + half}).status, 200);

    const ClientReply reply = client_.send("GET", "/", {"A: " + half, "B: " + half, "C: " + half});

    EXPECT_EQ(reply.status, 431) << reply.problem;
    EXPECT_EQ(reply.code(), "headers_too_large");
    EXPECT_NE(reply.body.find("delete its cookies for 127.0.0.1"), std::string::npos);
}

TEST_F(RunningHTTPSServerTest, LimitsTheNumberOfHeaders) {
    std::vector<std::string> headers(150, "A: 1");
    EXPECT_EQ(client_.send("GET", "/", headers).status, 200);

    headers.resize(250, "A: 1");
    EXPECT_EQ(client_.send("GET", "/", headers).status, 431);
}

TEST_F(RunningHTTPSServerTest, AnswersAClientThatSendsFarTooManyHeaders) {
    const ClientReply reply = client_.send("GET", "/", {"A: " + std::string(900'000, 'a')});

    EXPECT_EQ(reply.status, 431) << reply.problem;
}

TEST_F(RunningHTTPSServerTest, KeepsALargeBodyOfATrustedRequestOnly) {
    const std::string most(HTTPSServer::maxUntrustedBodySize, 'a');
    EXPECT_EQ(client_.post("/", most).body, "POST 65536");
    EXPECT_EQ(client_.post("/", most + "a").body, "POST 0 too large");
    EXPECT_EQ(client_.post("/trusted", most + "a").body, "POST 65537");

    const std::string large(HTTPSServer::maxBodySize, 'a');
    EXPECT_EQ(client_.post("/trusted", large).body, "POST 16777216");
    EXPECT_EQ(client_.post("/trusted", large + "a").body, "POST 0 too large");
}

TEST_F(RunningHTTPSServerTest, ReadsAChunkedBody) {
    const std::string body(100'000, 'a');
    const ClientReply reply =
        client_.send("POST", "/trusted", {"Transfer-Encoding: chunked"}, body);
    EXPECT_EQ(reply.body, "POST 100000");
}

TEST_F(RunningHTTPSServerTest, SendsAWholeReplyToARequestForRanges) {
    const ClientReply reply = client_.send("GET", "/", {"Range: bytes=0-,0-,0-"});
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, "GET 0");
}

TEST_F(RunningHTTPSServerTest, RefusesAmbiguousLengths) {
    const std::vector<std::vector<std::string>> cases{
        {"Content-Length: 2", "Transfer-Encoding: chunked"},
        {"Content-Length: 2", "Content-Length: 3"},
        {"Content-Length: -1"},
        {"Content-Length: 2, 3"},
        {"Content-Length: 99999999999999999999999"},
    };
    for (const auto& headers : cases) {
        const ClientReply reply = client_.send("GET", "/", headers);
        EXPECT_EQ(reply.status, 400) << testing::PrintToString(headers);
        EXPECT_EQ(reply.code(), "invalid_request") << testing::PrintToString(headers);
    }
}

TEST(HTTPSServerTest, AnswersIfItsHandlerThrows) {
    const TemporaryDirectory folder;
    const CertificateAuthority authority(folder.path(), std::chrono::system_clock::now());
    const auto fail = [](const service::Request&) -> Reply {
        throw std::runtime_error("a secret");
    };
    HTTPSServer server(authority, {.handle = fail, .isTrusted = [](const auto&) -> bool {
                                       throw std::runtime_error("a secret");
                                   }});
    const std::uint16_t port = server.start(0);
    const Client client{"https://127.0.0.1:" + std::to_string(port), authority.certificateFile()};

    const ClientReply reply = client.post("/", "{}");

    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.code(), "internal_error");
    EXPECT_EQ(reply.body.find("secret"), std::string::npos);
}

TEST(HTTPSServerTest, ClosesAConnectionToBeResetEvenWithoutFreeDescriptors) {
    const TemporaryDirectory folder;
    const CertificateAuthority authority(folder.path(), std::chrono::system_clock::now());
    std::optional<NoMoreDescriptors> none;
    const auto reset = [&none](const service::Request&) {
        none.emplace();
        Reply reply;
        reply.body = "{}";
        reply.delivery = Reply::Delivery::Reset;
        return reply;
    };
    HTTPSServer server(authority, {.handle = reset, .isTrusted = [](const auto&) {
                                       return true;
                                   }});
    const std::uint16_t port = server.start(0);
    const Client client{"https://127.0.0.1:" + std::to_string(port), authority.certificateFile()};

    const ClientReply reply = client.get("/");
    none.reset();
    server.stop();

    EXPECT_NE(reply.outcome, CURLE_OK);
    EXPECT_NE(reply.outcome, CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.body, "");
}

} // namespace orvel::test
