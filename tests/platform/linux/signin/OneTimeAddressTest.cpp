// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/OneTimeAddress.h"

#include "platform/linux/signin/LoopbackPeer.h"
#include "tests/platform/linux/signin/LoopbackClient.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/NeedsRoot.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/linux/SystemCalls.h"

#include <QEventLoop>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using End = OneTimeAddress::End;

constexpr auto page = "https://www.example.com/link?challenge=secret&client=mac";
constexpr uid_t nobody = 65534;

class OneTimeAddressTest : public testing::Test {
protected:
    void open() {
        address_ = std::make_unique<OneTimeAddress>(
            page, clock_, log_, [this](End end) { ends_.push_back(std::move(end)); });
    }

    [[nodiscard]] const std::string& url() const { return address_->url(); }
    [[nodiscard]] std::string path() const { return url().substr(url().rfind('/')); }
    [[nodiscard]] std::string host() const {
        return url().substr(7, url().size() - 7 - path().size());
    }

    /// The reply to a request of this account.
    std::string replyTo(const std::string& request) const {
        LoopbackClient client(url());
        client.send(request);
        return client.reply();
    }

    [[nodiscard]] bool isRedirected() const {
        return LoopbackClient::location(LoopbackClient::visit(url())) == page;
    }

    void expectNoEnd() {
        processEvents();
        EXPECT_THAT(ends_, IsEmpty());
    }

    ManualClock clock_;
    RecordingLogStore log_;
    std::vector<End> ends_;
    std::unique_ptr<OneTimeAddress> address_;
};

class OneTimeAddressAsRootTest : public OneTimeAddressTest {
protected:
    void SetUp() override {
        skipUnlessRoot();
        open();
    }
};

/// Returns the port.
std::uint16_t listenOnLoopback(int socket) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(socket, generic, size), 0);
    EXPECT_EQ(listen(socket, 1), 0);
    EXPECT_EQ(getsockname(socket, generic, &size), 0);
    return ntohs(address.sin_port);
}

/// The smallest descriptor that is not open.
rlim_t nextDescriptor() {
    const tavrin::FileDescriptor next(dup(0));
    return static_cast<rlim_t>(next.get());
}

/// The error of the constructor while the system call fails.
std::string failureWith(int call, int error) {
    std::string failure;
    withFailingCall(call, error, [&failure] {
        try {
            ManualClock clock;
            RecordingLogStore log;
            const OneTimeAddress address(page, clock, log, [](const auto&) {});
        } catch (const tavrin::PlatformError& thrown) {
            failure = thrown.what();
        }
    });
    return failure;
}

} // namespace

TEST_F(OneTimeAddressTest, RedirectsTheBrowserToThePage) {
    open();
    EXPECT_FALSE(address_->isUsed());
    const std::string reply = LoopbackClient::visit(url());
    EXPECT_EQ(LoopbackClient::location(reply), page);
    EXPECT_THAT(reply, HasSubstr("\r\nCache-Control: no-store\r\n"));
    EXPECT_THAT(reply, HasSubstr("\r\nContent-Length: 0\r\n"));
    EXPECT_TRUE(address_->isUsed());
    expectNoEnd();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(OneTimeAddressTest, DoesNotContainThePageAndCannotBeGuessed) {
    std::set<std::string> paths;
    for (int i = 0; i < 20; ++i) {
        open();
        EXPECT_THAT(url(), StartsWith("http://127.0.0.1:"));
        EXPECT_EQ(path().size(), 33U);
        EXPECT_EQ(path().find_first_not_of("0123456789abcdef", 1), std::string::npos);
        paths.insert(path());
    }
    EXPECT_THAT(paths, SizeIs(20));
}

TEST_F(OneTimeAddressTest, ASecondVisitGetsASentenceAndEndsIt) {
    open();
    ASSERT_TRUE(isRedirected());
    const std::string reply = LoopbackClient::visit(url());
    EXPECT_THAT(
        reply,
        AllOf(
            StartsWith("HTTP/1.1 410 Gone\r\n"),
            HasSubstr(
                "\r\n\r\nThis sign-in was ended, because its address had already been opened.\n"
                "Go back to Orvel Agent and start the sign-in again.\n"),
            Not(HasSubstr("secret"))));
    ASSERT_TRUE(waitUntil([this] { return !ends_.empty(); }));
    EXPECT_TRUE(std::holds_alternative<OneTimeAddress::UsedTwice>(ends_.front()));
    EXPECT_THROW(LoopbackClient{url()}, std::system_error) << "the address is still open";
    processEvents();
    EXPECT_THAT(ends_, SizeIs(1));
}

TEST_F(OneTimeAddressTest, TwoVisitsAtTheSameTimeAreAFirstAndASecondOne) {
    open();
    LoopbackClient one(url());
    LoopbackClient other(url());
    LoopbackClient third(url());
    for (const LoopbackClient* client : {&one, &other, &third}) {
        client->send(LoopbackClient::browserRequest(url()));
    }
    std::vector<std::string> locations;
    for (LoopbackClient* client : {&one, &other, &third}) {
        locations.push_back(LoopbackClient::location(client->reply()));
    }
    EXPECT_EQ(std::ranges::count(locations, page), 1);
    EXPECT_TRUE(waitUntil([this] { return !ends_.empty(); }));
    processEvents();
    EXPECT_THAT(ends_, SizeIs(1));
}

TEST_F(OneTimeAddressTest, OtherRequestsGetNothingAndHaveNoEffect) {
    open();
    const std::string good = "GET " + path() + " HTTP/1.1\r\n";
    const std::string hostLine = "Host: " + host() + "\r\n";
    const std::vector<std::string> requests{
        "GET / HTTP/1.1\r\n" + hostLine,
        "GET /favicon.ico HTTP/1.1\r\n" + hostLine,
        "GET " + path().substr(0, 32) + " HTTP/1.1\r\n" + hostLine,
        "GET " + path() + "0 HTTP/1.1\r\n" + hostLine,
        "GET " + path() + "?x HTTP/1.1\r\n" + hostLine,
        "GET  HTTP/1.1\r\n" + hostLine,
        "HEAD " + path() + " HTTP/1.1\r\n" + hostLine,
        "POST " + path() + " HTTP/1.1\r\n" + hostLine,
        "OPTIONS " + path() + " HTTP/1.1\r\n" + hostLine,
        "GET " + path() + "\r\n" + hostLine,
        "GET " + path() + " HTTP/2.0\r\n" + hostLine,
        "PRI * HTTP/2.0\r\n",
        "\r\n",
        good,
        good + "Host: evil.example:" + host().substr(10) + "\r\n",
        good + "Host: 127.0.0.1\r\n",
        good + "Host: localhost:" + host().substr(10) + "\r\n",
        good + "X-" + hostLine,
        good + "Host: evil.example\r\n" + hostLine,
        good + hostLine + "Sec-Fetch-Site: cross-site\r\n",
        good + hostLine + "sec-fetch-site:\tsame-site \r\n",
    };
    for (const std::string& request : requests) {
        const std::string reply = replyTo(request + "\r\n");
        EXPECT_THAT(reply, AllOf(StartsWith("HTTP/1.1 404 "), Not(HasSubstr("secret")))) << request;
        EXPECT_FALSE(address_->isUsed()) << request;
    }
    EXPECT_TRUE(isRedirected());
    for (const std::string& request : requests) {
        EXPECT_THAT(replyTo(request + "\r\n"), StartsWith("HTTP/1.1 404 ")) << request;
    }
    expectNoEnd();
}

TEST_F(OneTimeAddressTest, AcceptsTheRequestsOfBrowsers) {
    for (const char* headers :
         {"Host: {}\r\n",
          "host:{}\r\n",
          "User-Agent: x\r\nHOST: \t{} \r\nCookie: a=b\r\n",
          "Host: {}\r\nSec-Fetch-Site: none\r\n",
          "Host: {}\r\nSec-Fetch-Site: same-origin\r\n"}) {
        open();
        const std::string reply = replyTo(fmt::format(
            "GET {} HTTP/1.1\r\n{}\r\n", path(), fmt::format(fmt::runtime(headers), host())));
        EXPECT_EQ(LoopbackClient::location(reply), page) << headers;
    }
}

TEST_F(OneTimeAddressTest, ARequestMayArriveInPieces) {
    open();
    LoopbackClient client(url());
    for (const char byte : LoopbackClient::browserRequest(url())) {
        client.send({&byte, 1});
        processEvents();
    }
    EXPECT_EQ(LoopbackClient::location(client.reply()), page);
}

TEST_F(OneTimeAddressTest, ConnectionsWithoutACompleteRequestHaveNoEffect) {
    open();
    const std::string request = LoopbackClient::browserRequest(url());
    for (const std::string& part : {std::string(), request.substr(0, request.size() - 1)}) {
        const LoopbackClient client(url());
        client.send(part);
        processEvents();
    }
    EXPECT_FALSE(address_->isUsed());
    EXPECT_TRUE(isRedirected());
    expectNoEnd();
}

TEST_F(OneTimeAddressTest, ARequestIsLimitedTo64Kibibytes) {
    open();
    const std::string start = "GET " + path() + " HTTP/1.1\r\nHost: " + host() + "\r\nCookie: ";
    const std::size_t rest = OneTimeAddress::maximumRequestBytes - start.size();
    EXPECT_EQ(replyTo(start + std::string(rest, 'x') + "\r\n\r\n"), "");
    EXPECT_FALSE(address_->isUsed());
    const std::string reply = replyTo(start + std::string(rest - 4096, 'x') + "\r\n\r\n");
    EXPECT_EQ(LoopbackClient::location(reply), page);
}

TEST_F(OneTimeAddressTest, ASlowConnectionIsClosedAfterTenSeconds) {
    open();
    LoopbackClient client(url());
    client.send("GET ");
    processEvents();
    clock_.advance(OneTimeAddress::requestTimeout - tavrin::Seconds(1));
    processEvents();
    EXPECT_FALSE(client.isClosed());
    clock_.advance(tavrin::Seconds(1));
    EXPECT_EQ(client.reply(), "");
    EXPECT_TRUE(isRedirected());
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(OneTimeAddressTest, ServesALimitedNumberOfConnectionsAtATime) {
    open();
    std::list<LoopbackClient> clients;
    for (std::size_t i = 0; i < OneTimeAddress::maximumConnections; ++i) {
        clients.emplace_back(url());
    }
    LoopbackClient refused(url());
    EXPECT_EQ(refused.reply(), "");
    processEvents();
    EXPECT_TRUE(std::ranges::none_of(clients, [](auto& client) { return client.isClosed(); }));
    clients.pop_front();
    processEvents();
    EXPECT_TRUE(isRedirected());
}

TEST_F(OneTimeAddressTest, ABrowserMayConnectWithASocketForIPv6) {
    open();
    LoopbackClient client(url(), LoopbackClient::Protocol::IPv6);
    client.send(LoopbackClient::browserRequest(url()));
    EXPECT_EQ(LoopbackClient::location(client.reply()), page);
}

TEST_F(OneTimeAddressTest, ClosesItsPortWhenDestroyed) {
    open();
    const std::string url = address_->url();
    LoopbackClient waiting(url);
    processEvents();
    address_.reset();
    EXPECT_EQ(waiting.reply(), "");
    EXPECT_THROW(LoopbackClient{url}, std::system_error);
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(OneTimeAddressTest, MayBeDestroyedWhenItEnds) {
    address_ = std::make_unique<OneTimeAddress>(page, clock_, log_, [this](End end) {
        address_.reset();
        ends_.push_back(std::move(end));
    });
    const std::string address = url();
    ASSERT_TRUE(isRedirected());
    EXPECT_THAT(LoopbackClient::visit(address), StartsWith("HTTP/1.1 410 "));
    EXPECT_TRUE(waitUntil([this] { return !ends_.empty(); }));
}

TEST_F(OneTimeAddressTest, AFailureToAcceptEndsItBeforeItsUse) {
    std::string failure;
    std::string reply = "none";
    withFailingCall(SYS_accept4, EMFILE, [&] {
        const QEventLoop prepareThread;
        ManualClock clock;
        RecordingLogStore log;
        const OneTimeAddress address(page, clock, log, [&failure](const End& end) {
            failure += std::get<tavrin::PlatformError>(end).what();
        });
        LoopbackClient client(address.url());
        reply = client.reply();
        processEvents();
    });
    EXPECT_EQ(failure, "The browser could not be answered: Too many open files");
    EXPECT_EQ(reply, "");
}

TEST_F(OneTimeAddressTest, AfterItsUseASystemErrorOnlyClosesIt) {
    open();
    ASSERT_TRUE(isRedirected());
    processEvents();
    // The sanitizer needs a descriptor when it sees a type for the first time.
    const End seen = tavrin::PlatformError::fromErrno(EMFILE, "seen");
    LoopbackClient client(url());
    {
        const DescriptorLimit limit(nextDescriptor());
        processEvents();
    }
    EXPECT_EQ(client.reply(), "");
    expectNoEnd();
}

TEST_F(OneTimeAddressTest, ASystemWithoutRandomNumbersIsReported) {
    EXPECT_EQ(
        failureWith(SYS_getrandom, ENOSYS),
        "The system gives no random numbers: Function not implemented");
}

TEST_F(OneTimeAddressTest, ASystemWithoutSocketsIsReported) {
    EXPECT_EQ(
        failureWith(SYS_bind, EACCES),
        "Could not open an address for the browser: Permission denied");
}

TEST_F(OneTimeAddressAsRootTest, AnotherAccountGetsNothingAndIsLoggedOnce) {
    for (int i = 0; i < 3; ++i) {
        LoopbackClient stranger(url(), nobody);
        stranger.send(LoopbackClient::browserRequest(url()));
        EXPECT_EQ(stranger.reply(), "");
    }
    EXPECT_FALSE(address_->isUsed());
    EXPECT_TRUE(isRedirected());
    LoopbackClient stranger(url(), nobody);
    stranger.send(LoopbackClient::browserRequest(url()));
    EXPECT_EQ(stranger.reply(), "");
    expectNoEnd();
    ASSERT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(
        log_.lines().front().message,
        "another account of this machine tried to open the sign-in page and got nothing");
}

TEST_F(OneTimeAddressAsRootTest, ConnectionsOfAnotherAccountDoNotKeepTheBrowserOut) {
    std::list<LoopbackClient> strangers;
    for (std::size_t i = 0; i < 3 * OneTimeAddress::maximumConnections; ++i) {
        strangers.emplace_back(url(), nobody);
    }
    EXPECT_TRUE(isRedirected());
}

TEST(LoopbackPeerTest, FindsTheOwnerOfAnOpenConnection) {
    const tavrin::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::uint16_t ownPort = listenOnLoopback(listener.get());
    const LoopbackClient client(fmt::format("http://127.0.0.1:{}/", ownPort));
    EXPECT_EQ(loopbackPeer(client.port(), ownPort), geteuid());
    client.stopSending();
    EXPECT_EQ(loopbackPeer(client.port(), ownPort), std::nullopt) << "half closed";
}

TEST(LoopbackPeerTest, AConnectionThatIsNotThereHasNoOwner) {
    EXPECT_EQ(loopbackPeer(1, 2), std::nullopt);
}

TEST(LoopbackPeerTest, ATableThatCannotBeReadIsReported) {
    std::string failure;
    withFailingCall(SYS_openat, EACCES, [&failure] {
        try {
            static_cast<void>(loopbackPeer(1, 2));
        } catch (const tavrin::PlatformError& error) {
            failure = error.what();
        }
    });
    EXPECT_EQ(failure, "/proc/net/tcp: Permission denied");
}

} // namespace orvel::test
