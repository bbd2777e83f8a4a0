// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/OneTimeAddress.h"

#include "platform/LoopbackPeer.h"
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
#include <filesystem>
#include <iterator>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace orvel::test {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr auto page = "https://www.example.com/link?challenge=secret&client=mac";
constexpr uid_t nobody = 65534;

class OneTimeAddressTest : public testing::Test {
protected:
    void open() {
        address_ = std::make_unique<OneTimeAddress>(page, clock_, log_, [this] { ++ends_; });
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
        EXPECT_EQ(ends_, 0);
    }

    ManualClock clock_;
    RecordingLogStore log_;
    int ends_ = 0;
    std::unique_ptr<OneTimeAddress> address_;
};

constexpr auto onlyOnce =
    "the sign-in page can be opened only once: The account of a connection could not be "
    "determined: Operation not permitted";

/// On a system that does not tell the accounts of connections.
class OneTimeAddressUndeterminedTest : public testing::Test {
protected:
    /// The replies to requests that arrive at the same time or, with `inTurn`, after each other.
    std::vector<std::string>
    repliesTo(const std::vector<std::string>& methods, bool inTurn = true) {
        std::vector<std::string> replies;
        // The address asks the kernel with this call. The client does not use it.
        withFailingCall(SYS_sendmsg, EPERM, [&] {
            const QEventLoop prepareThread;
            ManualClock clock;
            OneTimeAddress address(page, clock, log_, [this] { ++ends_; });
            std::list<LoopbackClient> clients;
            for (const std::string& method : methods) {
                LoopbackClient& client = clients.emplace_back(address.url());
                std::string request = LoopbackClient::browserRequest(address.url());
                client.send(request.replace(0, 3, method));
                if (inTurn) {
                    replies.push_back(client.reply());
                }
            }
            for (LoopbackClient& client : clients) {
                replies.push_back(inTurn ? "" : client.reply());
            }
            replies.resize(methods.size());
            processEvents();
            if (ends_ > 0) {
                EXPECT_THROW(LoopbackClient{address.url()}, std::system_error) << "still open";
            }
        });
        return replies;
    }

    [[nodiscard]] std::vector<std::string> loggedLines() const {
        std::vector<std::string> lines;
        for (const auto& line : log_.lines()) {
            lines.push_back(line.message);
        }
        return lines;
    }

    RecordingLogStore log_;
    int ends_ = 0;
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

std::size_t threadCount() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(threads), end(threads)));
}

/// The error of the constructor while the system call fails.
std::string failureWith(int call, int error) {
    std::string failure;
    withFailingCall(call, error, [&failure] {
        try {
            ManualClock clock;
            RecordingLogStore log;
            const OneTimeAddress address(page, clock, log, [] {});
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

TEST_F(OneTimeAddressTest, TheUsersProgramsGetThePageAsOftenAsTheyAsk) {
    open();
    for (int visit = 0; visit < 3; ++visit) {
        EXPECT_TRUE(isRedirected());
    }
    LoopbackClient one(url());
    LoopbackClient other(url());
    for (LoopbackClient* client : {&one, &other}) {
        client->send(LoopbackClient::browserRequest(url()));
    }
    for (LoopbackClient* client : {&one, &other}) {
        EXPECT_EQ(LoopbackClient::location(client->reply()), page);
    }
    expectNoEnd();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(OneTimeAddressTest, AHeadRequestGetsTheTypeWithoutThePage) {
    open();
    for (const char* version : {"1.0", "1.1"}) {
        const std::string reply =
            replyTo(fmt::format("HEAD {} HTTP/{}\r\nHost: {}\r\n\r\n", path(), version, host()));
        EXPECT_THAT(
            reply,
            AllOf(
                StartsWith("HTTP/1.1 200 OK\r\n"),
                HasSubstr("\r\nContent-Type: text/html\r\n"),
                EndsWith("\r\n\r\n"),
                Not(HasSubstr("secret"))));
    }
    EXPECT_FALSE(address_->isUsed());
    EXPECT_TRUE(isRedirected());
}

TEST_F(OneTimeAddressUndeterminedTest, ASecondVisitGetsASentenceAndEndsIt) {
    const auto replies = repliesTo({"GET", "GET"});
    EXPECT_EQ(LoopbackClient::location(replies.front()), page);
    EXPECT_THAT(
        replies.back(),
        AllOf(
            StartsWith("HTTP/1.1 410 Gone\r\n"),
            HasSubstr(
                "\r\n\r\nThis sign-in was ended, because its address had already been opened.\n"
                "Go back to Orvel Agent and start the sign-in again.\n"),
            Not(HasSubstr("secret"))));
    EXPECT_EQ(ends_, 1);
    EXPECT_THAT(loggedLines(), ElementsAre(onlyOnce));
}

TEST_F(OneTimeAddressUndeterminedTest, TwoVisitsAtTheSameTimeAreAFirstAndASecondOne) {
    std::vector<std::string> locations;
    for (const std::string& reply : repliesTo({"GET", "GET", "GET"}, false)) {
        locations.push_back(LoopbackClient::location(reply));
    }
    EXPECT_EQ(std::ranges::count(locations, page), 1);
    EXPECT_EQ(ends_, 1);
}

TEST_F(OneTimeAddressUndeterminedTest, AHeadRequestDoesNotUseItUp) {
    const auto replies = repliesTo({"HEAD", "GET", "HEAD"});
    EXPECT_EQ(LoopbackClient::location(replies.at(1)), page);
    for (const std::size_t head : {0U, 2U}) {
        EXPECT_THAT(replies.at(head), StartsWith("HTTP/1.1 200 OK\r\n"));
    }
    EXPECT_EQ(ends_, 0);
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
        "HEAD " + path() + "0 HTTP/1.1\r\n" + hostLine,
        "HEAD " + path() + " HTTP/1.1\r\n" + hostLine + "Sec-Fetch-Site: cross-site\r\n",
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

TEST(OneTimeAddressEndTest, MayDestroyIt) {
    bool hasEnded = false;
    withFailingCall(SYS_sendmsg, EPERM, [&hasEnded] {
        const QEventLoop prepareThread;
        ManualClock clock;
        RecordingLogStore log;
        std::unique_ptr<OneTimeAddress> address;
        address = std::make_unique<OneTimeAddress>(page, clock, log, [&] {
            address.reset();
            hasEnded = true;
        });
        const std::string url = address->url();
        EXPECT_EQ(LoopbackClient::location(LoopbackClient::visit(url)), page);
        EXPECT_THAT(LoopbackClient::visit(url), StartsWith("HTTP/1.1 410 "));
        EXPECT_TRUE(waitUntil([&hasEnded] { return hasEnded; }));
    });
    EXPECT_TRUE(hasEnded);
}

TEST_F(OneTimeAddressTest, ATemporaryFailureToAcceptHasNoEffect) {
    for (const int error : {ECONNABORTED, EINTR, EAGAIN}) {
        int ends = 0;
        RecordingLogStore log;
        withFailingCall(SYS_accept4, error, [&] {
            const QEventLoop prepareThread;
            ManualClock clock;
            const OneTimeAddress address(page, clock, log, [&ends] { ++ends; });
            const LoopbackClient client(address.url());
            processEvents();
            EXPECT_FALSE(clock.untilNextTimer()) << error;
        });
        EXPECT_EQ(ends, 0) << error;
        EXPECT_THAT(log.lines(), IsEmpty()) << error;
    }
}

TEST_F(OneTimeAddressTest, AfterAFailureToAcceptTheBrowserWaitsAndIsServed) {
    for (const bool isUsed : {false, true}) {
        const std::size_t threads = threadCount();
        open();
        // The address's thread needs a descriptor.
        ASSERT_TRUE(waitUntil([threads] { return threadCount() == threads; }));
        if (isUsed) {
            ASSERT_TRUE(isRedirected());
            processEvents();
        }
        // The sanitizer needs a descriptor when it sees a type for the first time.
        EXPECT_EQ(tavrin::PlatformError::fromErrno(EMFILE, "seen").code(), EMFILE);
        LoopbackClient client(url());
        client.send(LoopbackClient::browserRequest(url()));
        {
            const DescriptorLimit limit(nextDescriptor());
            for (int attempt = 0; attempt < 3; ++attempt) {
                processEvents();
                clock_.advance(OneTimeAddress::acceptPause);
            }
            EXPECT_FALSE(client.isClosed());
        }
        processEvents();
        clock_.advance(OneTimeAddress::acceptPause);
        EXPECT_EQ(LoopbackClient::location(client.reply()), page);
        expectNoEnd();
        ASSERT_THAT(log_.lines(), SizeIs(isUsed ? 2 : 1));
        EXPECT_EQ(
            log_.lines().back().message,
            "the browser must wait for the sign-in page: Too many open files");
    }
}

TEST_F(OneTimeAddressTest, AConnectionThatTheOtherEndClosedIsLoggedOnce) {
    open();
    for (int i = 0; i < 3; ++i) {
        const LoopbackClient client(url());
        client.send(LoopbackClient::browserRequest(url()));
        client.stopSending();
        processEvents();
    }
    EXPECT_FALSE(address_->isUsed());
    ASSERT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(
        log_.lines().front().message,
        "a program closed its connection to the sign-in page before its account was known, and "
        "got nothing");
    EXPECT_TRUE(isRedirected());
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
        LoopbackClient other(url(), nobody);
        other.send(LoopbackClient::browserRequest(url()));
        EXPECT_EQ(other.reply(), "");
    }
    EXPECT_FALSE(address_->isUsed());
    EXPECT_TRUE(isRedirected());
    LoopbackClient other(url(), nobody);
    other.send(LoopbackClient::browserRequest(url()));
    EXPECT_EQ(other.reply(), "");
    expectNoEnd();
    ASSERT_THAT(log_.lines(), SizeIs(1));
    EXPECT_EQ(
        log_.lines().front().message,
        "another account of this machine tried to open the sign-in page and got nothing");
}

TEST_F(OneTimeAddressAsRootTest, ConnectionsOfAnotherAccountDoNotKeepTheBrowserOut) {
    std::list<LoopbackClient> others;
    for (std::size_t i = 0; i < 3 * OneTimeAddress::maximumConnections; ++i) {
        others.emplace_back(url(), nobody);
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
    const tavrin::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::uint16_t ownPort = listenOnLoopback(listener.get());
    EXPECT_EQ(loopbackPeer(1, ownPort), std::nullopt);
    // A socket that listens at the peer's port is not the connection.
    const tavrin::FileDescriptor other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(loopbackPeer(listenOnLoopback(other.get()), ownPort), std::nullopt);
}

TEST(LoopbackPeerTest, ReadsNoFileOfTheSystem) {
    const tavrin::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::uint16_t ownPort = listenOnLoopback(listener.get());
    const LoopbackClient client(fmt::format("http://127.0.0.1:{}/", ownPort));
    std::optional<uid_t> owner;
    withFailingCall(SYS_openat, EACCES, [&] { owner = loopbackPeer(client.port(), ownPort); });
    EXPECT_EQ(owner, geteuid());
}

TEST(LoopbackPeerTest, AKernelThatDoesNotAnswerIsReported) {
    const auto failure = [](int call, int error) {
        std::string text;
        withFailingCall(call, error, [&text] {
            try {
                static_cast<void>(loopbackPeer(1, 2));
            } catch (const tavrin::PlatformError& thrown) {
                text = thrown.what();
            }
        });
        return text;
    };
    EXPECT_EQ(
        failure(SYS_socket, EPROTONOSUPPORT),
        "The account of a connection could not be determined: Protocol not supported");
    EXPECT_EQ(
        failure(SYS_sendmsg, EPERM),
        "The account of a connection could not be determined: Operation not permitted");
    // As on a kernel without this service, the own socket is not found either.
    EXPECT_EQ(
        failure(-1, 0),
        "The account of a connection could not be determined: Operation not supported");
}

} // namespace orvel::test
