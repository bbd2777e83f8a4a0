// SPDX-License-Identifier: Apache-2.0
//
// Tests behaviour specific to the desktop: the bus, the timeout, the callback program, and calls by
// other programs.
#include "platform/linux/signin/BrowserAuthenticationSession.h"

#include "platform/linux/desktop/XdgWorkspace.h"
#include "platform/linux/support/SessionBus.h"
#include "tests/platform/linux/keychain/SilentBus.h"
#include "tests/platform/linux/signin/BrowserScript.h"
#include "tests/platform/linux/signin/LoopbackClient.h"
#include "tests/platform/linux/signin/SignInBusCalls.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/linux/SystemCalls.h"

#include <QDBusConnectionInterface>
#include <QDBusError>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Session = BrowserAuthenticationSession;

constexpr auto page = "https://www.example.com/link?challenge=secret";
constexpr auto callback = "orvelagent://callback?code=secret";

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Ignores callbacks with "malformed", and ends the sign-in with a sentence for those with "error".
std::optional<Session::Outcome> screen(const std::string& url) {
    if (url.find("malformed") != std::string::npos) {
        return std::nullopt;
    }
    if (url.find("error") != std::string::npos) {
        return Session::Failed{"The page reported an error."};
    }
    return url;
}

/// One process's session with a fake browser.
struct Agent {
    FakeWorkspace workspace;
    ManualClock clock;
    RecordingLogStore log;
    std::vector<Session::Outcome> outcomes;
    std::unique_ptr<Session::Attempt> attempt;
    Session session{workspace, clock, log, [](const std::function<void()>& ready) {
                        ready();
                    }};

    void start() {
        attempt = session.start(page, "orvelagent", screen, [this](Session::Outcome outcome) {
            outcomes.push_back(std::move(outcome));
        });
    }
    /// Starts an attempt and waits until the browser is asked to open its address.
    void startAndAsk() {
        const std::size_t before = workspace.openedURLs.size();
        start();
        ASSERT_TRUE(waitUntil([&] { return workspace.openedURLs.size() > before; }));
    }
    /// Starts an attempt and opens its page.
    void startAndOpen() {
        startAndAsk();
        ASSERT_EQ(LoopbackClient::location(visit()), page);
    }
    /// Opens the last address as the browser does. Returns the reply.
    [[nodiscard]] std::string visit() const {
        return LoopbackClient::visit(workspace.openedURLs.back());
    }
    [[nodiscard]] bool isWaiting() {
        processEvents();
        return outcomes.empty();
    }
    template <typename T>
    [[nodiscard]] bool endsWith() {
        return waitUntil([this] { return !outcomes.empty(); }) &&
               std::holds_alternative<T>(outcomes.back());
    }
    [[nodiscard]] std::vector<std::string> messages() const {
        std::vector<std::string> texts;
        for (const auto& line : log.lines()) {
            EXPECT_EQ(line.category, "auth");
            texts.push_back(line.message);
        }
        return texts;
    }
};

class BrowserAuthenticationSessionTest : public testing::Test {
protected:
    /// Runs the callback program.
    struct Run {
        int status;
        std::string output;
        std::string errors;
    };
    static Run
    run(std::vector<std::string> arguments, std::map<std::string, std::string> environment = {}) {
        arguments.insert(arguments.begin(), CALLBACK_PROGRAM);
        Program program({std::move(arguments), std::move(environment)});
        std::optional<int> status;
        EXPECT_TRUE(waitUntil([&] {
            status = program.waitFor(std::chrono::milliseconds(0));
            return status.has_value();
        }));
        return {status.value_or(-1), program.output(), program.errors()};
    }

    Agent agent_;
};

} // namespace

TEST_F(BrowserAuthenticationSessionTest, TheBrowserIsGivenAnAddressWithoutThePage) {
    agent_.startAndAsk();
    ASSERT_THAT(agent_.workspace.openedURLs, SizeIs(1));
    EXPECT_THAT(
        agent_.workspace.openedURLs.front(),
        AllOf(
            StartsWith("http://127.0.0.1:"), Not(HasSubstr("secret")), Not(HasSubstr("example"))));
    EXPECT_EQ(LoopbackClient::location(agent_.visit()), page);
}

TEST_F(BrowserAuthenticationSessionTest, IgnoresACallbackBeforeThePageWasOpened) {
    agent_.startAndAsk();
    EXPECT_FALSE(callBack(callback));
    EXPECT_TRUE(agent_.isWaiting());
    EXPECT_THAT(
        agent_.messages(),
        ElementsAre(
            "ignored a callback, which came before the sign-in page: orvelagent://callback"));
    EXPECT_EQ(LoopbackClient::location(agent_.visit()), page);
    EXPECT_TRUE(callBack(callback));
}

TEST_F(BrowserAuthenticationSessionTest, TheUserMayReloadThePage) {
    agent_.startAndOpen();
    EXPECT_EQ(LoopbackClient::location(agent_.visit()), page);
    EXPECT_TRUE(agent_.isWaiting());
    EXPECT_TRUE(callBack(callback));
    EXPECT_THAT(agent_.messages(), IsEmpty());
}

TEST_F(BrowserAuthenticationSessionTest, TheAddressIsClosedWhenTheSignInEnds) {
    agent_.startAndAsk();
    agent_.attempt->cancel();
    EXPECT_THROW(static_cast<void>(agent_.visit()), std::system_error);
    agent_.startAndOpen();
    EXPECT_TRUE(callBack(callback));
    EXPECT_THROW(static_cast<void>(agent_.visit()), std::system_error);
}

TEST_F(BrowserAuthenticationSessionTest, IgnoresMalformedCallbacksAndLogsThemWithoutTheirQuery) {
    agent_.startAndOpen();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(callBack("orvelagent://callback?malformed=secret"));
    }
    EXPECT_TRUE(agent_.isWaiting());
    EXPECT_THAT(
        agent_.messages(),
        AllOf(SizeIs(3), Each("ignored a callback, which is malformed: orvelagent://callback")));
    EXPECT_TRUE(callBack(callback));
    EXPECT_TRUE(agent_.endsWith<std::string>());
}

TEST_F(BrowserAuthenticationSessionTest, ACallbackCanEndTheSignInWithASentenceOfTheAgent) {
    agent_.startAndOpen();
    EXPECT_TRUE(callBack("orvelagent://callback?error=Call%20me"));
    ASSERT_TRUE(agent_.endsWith<Session::Failed>());
    EXPECT_EQ(
        std::get<Session::Failed>(agent_.outcomes.front()).description,
        "The page reported an error.");
}

TEST_F(BrowserAuthenticationSessionTest, APageWithoutAValidAddressIsNotOpened) {
    for (const char* url :
         {"http://www.example.com/",
          "https://www.example.com/\r\nSet-Cookie: a=b",
          "https://www.example.com/ä",
          ""}) {
        const auto attempt = agent_.session.start(url, "orvelagent", screen, [this](auto outcome) {
            agent_.outcomes.push_back(std::move(outcome));
        });
        EXPECT_TRUE(agent_.endsWith<Session::NotStarted>()) << url;
        agent_.outcomes.clear();
    }
    EXPECT_THAT(agent_.workspace.openedURLs, IsEmpty());
}

TEST_F(BrowserAuthenticationSessionTest, IgnoresACallbackWithoutASignInAndLogsItWithoutItsQuery) {
    agent_.startAndOpen();
    agent_.attempt->cancel();
    EXPECT_FALSE(callBack(callback));
    EXPECT_TRUE(agent_.endsWith<Session::Cancelled>());
    EXPECT_THAT(
        agent_.messages(),
        ElementsAre("ignored a callback, which no sign-in waits for: orvelagent://callback"));
}

TEST_F(BrowserAuthenticationSessionTest, AReplayedCallbackIsIgnored) {
    agent_.startAndOpen();
    EXPECT_TRUE(callBack(callback));
    EXPECT_FALSE(callBack(callback));
    EXPECT_TRUE(agent_.endsWith<std::string>());
    processEvents();
    EXPECT_EQ(agent_.outcomes.size(), 1U);
    EXPECT_EQ(agent_.messages().size(), 1U);
}

TEST_F(BrowserAuthenticationSessionTest, AcceptsOnlyCallbacksWithTheScheme) {
    agent_.startAndOpen();
    for (const char* url :
         {"",
          "orvelagent",
          "orvelagent2://callback?code=secret",
          "orvel://callback?code=secret",
          "https://orvelagent://callback?code=secret",
          " orvelagent://callback?code=secret",
          "other://callback#code=secret"}) {
        EXPECT_FALSE(callBack(url)) << url;
    }
    EXPECT_TRUE(agent_.isWaiting());
    for (const std::string& message : agent_.messages()) {
        EXPECT_THAT(
            message,
            AllOf(
                HasSubstr("ignored a callback, which has another scheme: "),
                Not(HasSubstr("secret"))));
    }
    EXPECT_TRUE(callBack("OrvelAgent:code"));
    EXPECT_TRUE(agent_.endsWith<std::string>());
}

TEST_F(BrowserAuthenticationSessionTest, AcceptsCallbacksOfUpToEightKibibytes) {
    agent_.startAndOpen();
    std::string url = "orvelagent://callback?code=";
    url.resize(Session::maximumCallbackBytes, 'x');
    for (const std::string& tooLong :
         {url + "x",
          url + std::string(std::size_t{1} << 20U, 'x'),
          "orvelagent:" + std::string(9000, 'x')}) {
        EXPECT_FALSE(callBack(tooLong));
    }
    EXPECT_TRUE(agent_.isWaiting());
    for (const std::string& message : agent_.messages()) {
        EXPECT_THAT(message, HasSubstr("which is too long"));
        EXPECT_LT(message.size(), 200U);
    }
    EXPECT_TRUE(callBack(url));
    EXPECT_TRUE(agent_.endsWith<std::string>());
}

TEST_F(BrowserAuthenticationSessionTest, OffersNoOtherCall) {
    agent_.startAndOpen();
    const QString url = QString::fromLatin1(callback);
    const auto isRefused = [](const QDBusMessage& reply) {
        return reply.type() == QDBusMessage::ErrorMessage;
    };
    EXPECT_TRUE(isRefused(callSignIn({})));
    EXPECT_TRUE(isRefused(callSignIn({url, url})));
    EXPECT_TRUE(isRefused(callSignIn({QByteArray(callback)})));
    EXPECT_TRUE(isRefused(callSignIn({1})));
    EXPECT_TRUE(isRefused(callSignIn({url}, "callback")));
    EXPECT_TRUE(isRefused(callSignIn({}, "deleteLater")));
    EXPECT_TRUE(isRefused(callSignIn({url}, "Callback", "app.orvel.Other")));
    EXPECT_TRUE(isRefused(callSignIn(
        {QStringLiteral("org.qtproject.Qt.QObject"), QStringLiteral("objectName")},
        "Get",
        "org.freedesktop.DBus.Properties")));
    EXPECT_TRUE(agent_.isWaiting());
    EXPECT_THAT(agent_.messages(), IsEmpty());
}

TEST_F(BrowserAuthenticationSessionTest, OpensTheBrowserAfterThePreparation) {
    std::function<void()> ready;
    Session session(
        agent_.workspace, agent_.clock, agent_.log, [&](std::function<void()> whenReady) {
            ready = std::move(whenReady);
        });
    std::vector<Session::Outcome> outcomes;
    const auto attempt = session.start(page, "orvelagent", screen, [&](Session::Outcome outcome) {
        outcomes.push_back(std::move(outcome));
    });
    ASSERT_TRUE(waitUntil([&] { return ready != nullptr; }));
    EXPECT_FALSE(callBack(callback));
    EXPECT_THAT(agent_.workspace.openedURLs, IsEmpty());
    ready();
    ASSERT_THAT(agent_.workspace.openedURLs, SizeIs(1));
    EXPECT_EQ(LoopbackClient::location(agent_.visit()), page);
    EXPECT_TRUE(callBack(callback));
    EXPECT_TRUE(waitUntil([&] { return !outcomes.empty(); }));
}

TEST_F(BrowserAuthenticationSessionTest, OpensNothingIfTheAttemptEndedDuringThePreparation) {
    std::function<void()> ready;
    auto session = std::make_unique<Session>(
        agent_.workspace, agent_.clock, agent_.log, [&](std::function<void()> whenReady) {
            ready = std::move(whenReady);
        });
    const auto attempt = session->start(page, "orvelagent", screen, [](const Session::Outcome&) {});
    ASSERT_TRUE(waitUntil([&] { return ready != nullptr; }));
    attempt->cancel();
    ready();
    session.reset();
    ready();
    attempt->cancel();
    EXPECT_THAT(agent_.workspace.openedURLs, IsEmpty());
}

TEST_F(BrowserAuthenticationSessionTest, WaitsForTenMinutes) {
    agent_.startAndOpen();
    agent_.clock.advance(Session::longestWait - tavrin::Seconds(1));
    EXPECT_TRUE(agent_.isWaiting());
    agent_.clock.advance(tavrin::Seconds(1));
    EXPECT_TRUE(agent_.endsWith<Session::NoResponse>());
    EXPECT_FALSE(callBack(callback));
}

TEST_F(BrowserAuthenticationSessionTest, AnotherProcesssSignInEndsAPendingOne) {
    Agent other;
    agent_.startAndOpen();
    other.startAndOpen();
    EXPECT_TRUE(agent_.endsWith<Session::Cancelled>());
    EXPECT_TRUE(other.isWaiting());
    EXPECT_TRUE(callBack(callback));
    EXPECT_TRUE(other.endsWith<std::string>());

    // And in the other direction.
    agent_.outcomes.clear();
    agent_.startAndOpen();
    EXPECT_TRUE(callBack(callback));
    EXPECT_TRUE(agent_.endsWith<std::string>());
    EXPECT_EQ(other.outcomes.size(), 1U);
}

TEST_F(BrowserAuthenticationSessionTest, LosingTheNameOfAnEarlierAttemptDoesNotEndALaterOne) {
    agent_.startAndOpen();
    QDBusConnection bus = QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("takes the name"));
    const auto taken = bus.interface()->registerService(
        QString::fromLatin1(sign_in_bus::service),
        QDBusConnectionInterface::ReplaceExistingService,
        QDBusConnectionInterface::AllowReplacement);
    ASSERT_EQ(taken.value(), QDBusConnectionInterface::ServiceRegistered);
    // The signals about the lost name are still pending.
    agent_.startAndOpen();
    ASSERT_EQ(agent_.outcomes.size(), 1U);
    EXPECT_TRUE(callBack(callback));
    EXPECT_TRUE(waitUntil([this] { return agent_.outcomes.size() == 2; }));
    EXPECT_EQ(std::get<std::string>(agent_.outcomes.back()), callback);
    QDBusConnection::disconnectFromBus(bus.name());
}

TEST_F(BrowserAuthenticationSessionTest, DoesNotStartWhileAnotherProgramKeepsTheName) {
    QDBusConnection bus = QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("keeps the name"));
    ASSERT_TRUE(bus.registerService(QString::fromLatin1(sign_in_bus::service)));
    agent_.start();
    EXPECT_TRUE(agent_.endsWith<Session::NotStarted>());
    EXPECT_THAT(agent_.workspace.openedURLs, IsEmpty());
    EXPECT_THAT(
        agent_.messages(), ElementsAre("could not get the sign-in's name on the session bus"));
    bus.unregisterService(QString::fromLatin1(sign_in_bus::service));
    QDBusConnection::disconnectFromBus(bus.name());
}

TEST_F(BrowserAuthenticationSessionTest, ConnectsOnlyBetweenTheFirstSignInAndTheSessionsEnd) {
    const auto isReachable = [] {
        return callSignIn({QString::fromLatin1(callback)}).type() == QDBusMessage::ReplyMessage;
    };
    EXPECT_FALSE(isReachable());
    {
        Agent agent;
        agent.startAndOpen();
        EXPECT_TRUE(isReachable());
    }
    EXPECT_FALSE(isReachable());
}

TEST_F(BrowserAuthenticationSessionTest, ABrowserThatCannotBeOpenedIsLogged) {
    agent_.workspace.openError = tavrin::PlatformError("test", 1, "There is no browser.");
    agent_.start();
    EXPECT_TRUE(agent_.endsWith<Session::NotStarted>());
    EXPECT_THAT(agent_.messages(), ElementsAre("There is no browser."));
}

// Runs in its own process, because the bus's address is looked up once.
TEST(BrowserAuthenticationSessionDeathTest, WithoutABusNoSignInStarts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    EXPECT_EXIT(
        {
            Agent agent;
            agent.start();
            const bool isNotStarted =
                agent.outcomes.empty() && agent.endsWith<Session::NotStarted>();
            for (const std::string& message : agent.messages()) {
                std::cerr << message << '\n';
            }
            std::_Exit(isNotStarted && agent.workspace.openedURLs.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "sign-in needs a session bus, and there is none");
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
}

namespace {

/// Whether losing the bus ends a sign-in, and the next one uses the new bus.
bool endsWithItsBus() {
    const TemporaryDirectory folder;
    const std::string address = "unix:path=" + (folder / "bus").string();
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(address));
    const auto startBus = [&] {
        std::filesystem::remove(folder / "bus");
        auto bus = std::make_unique<Program>(Program::Options{
            {"/usr/bin/dbus-daemon",
             "--session",
             "--nofork",
             "--print-address",
             "--address=" + address},
            {}});
        // The daemon prints its address once it listens.
        EXPECT_TRUE(waitUntil([&] { return !bus->output().empty(); }));
        return bus;
    };
    auto bus = startBus();
    Agent agent;
    agent.startAndOpen();
    bus->signal(SIGTERM);
    if (!agent.endsWith<Session::NoResponse>()) {
        return false;
    }
    bus->wait();
    bus = startBus();
    agent.startAndOpen();
    return callBack(callback) && agent.endsWith<std::string>() && agent.outcomes.size() == 2 &&
           agent.messages() == std::vector<std::string>{"the session bus is gone"};
}

/// Whether the event loop keeps running, and a pending attempt can be cancelled or times out.
bool isNotHeldUpByASilentBus() {
    const SilentBus bus;
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.address()));
    Agent agent;
    agent.start();
    agent.clock.advance(SessionBus::longestConnecting - tavrin::Seconds(1));
    const bool hasWaited = agent.isWaiting();
    agent.attempt->cancel();
    const bool isCancelled = agent.endsWith<Session::Cancelled>();
    agent.outcomes.clear();
    agent.start();
    agent.clock.advance(tavrin::Seconds(1));
    return hasWaited && isCancelled && agent.endsWith<Session::NotStarted>() &&
           agent.workspace.openedURLs.empty();
}

/// Why a sign-in ends whose page is opened twice, where the system does not tell by which accounts.
/// Empty unless it is logged, too.
std::string endAfterTwoVisits() {
    Agent agent;
    agent.startAndAsk();
    // The address asks the kernel with this call.
    failCall(SYS_sendmsg, EPERM);
    if (LoopbackClient::location(agent.visit()) != page ||
        !agent.visit().starts_with("HTTP/1.1 410 ") || !agent.endsWith<Session::Failed>() ||
        agent.messages() !=
            std::vector<std::string>{
                "the sign-in page can be opened only once: The account of a connection could not "
                "be determined: Operation not permitted",
                "the sign-in page was opened twice"}) {
        return "";
    }
    return std::get<Session::Failed>(agent.outcomes.front()).description;
}

} // namespace

TEST(BrowserAuthenticationSessionDeathTest, OpeningThePageTwiceEndsTheSignInWithASentence) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            fmt::print(stderr, "{}\n", endAfterTwoVisits());
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "The sign-in was ended, because its page was opened twice\\. Please try again\\.");
}

TEST(BrowserAuthenticationSessionDeathTest, LosingTheBusEndsASignInAndTheNextOneReconnects) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(endsWithItsBus() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(BrowserAuthenticationSessionDeathTest, TheProcessMayEndWhileTheBusIsConnected) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Agent().start();
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "");
}

TEST(BrowserAuthenticationSessionDeathTest, ASilentBusDoesNotBlock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(isNotHeldUpByASilentBus() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(BrowserAuthenticationSessionTest, TheCallbackProgramPassesTheURL) {
    agent_.startAndOpen();
    const std::string url = "orvelagent://callback?code=a%20b+%C3%A9&state=é\"'$#fragment";
    const Run handOver = run({url});
    EXPECT_EQ(handOver.status, 0);
    EXPECT_EQ(handOver.output + handOver.errors, "");
    ASSERT_TRUE(agent_.endsWith<std::string>());
    EXPECT_EQ(std::get<std::string>(agent_.outcomes.front()), url);
}

TEST_F(BrowserAuthenticationSessionTest, TheCallbackProgramReportsThatNoSignInWaits) {
    const Run withoutAgent = run({callback});
    EXPECT_EQ(withoutAgent.status, 1);
    EXPECT_EQ(withoutAgent.errors, "No Orvel Agent is waiting for a sign-in.\n");
    agent_.startAndOpen();
    const Run otherScheme = run({"other://callback?code=secret"});
    EXPECT_EQ(otherScheme.status, 1);
    EXPECT_EQ(otherScheme.errors, "Orvel Agent is not waiting for this sign-in.\n");
    EXPECT_EQ(withoutAgent.output + otherScheme.output, "");
}

TEST_F(BrowserAuthenticationSessionTest, TheCallbackProgramReportsAMissingBus) {
    const Run withoutBus =
        run({callback}, {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}});
    EXPECT_EQ(withoutBus.status, 1);
    EXPECT_EQ(
        withoutBus.errors, "There is no session bus on which Orvel Agent could be reached.\n");
}

TEST_F(BrowserAuthenticationSessionTest, TheCallbackProgramPrintsItsUsage) {
    const Run help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("usage: orvel-agent-callback URL\n"));
    EXPECT_EQ(help.errors, "");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {},
             {""},
             {"--version"},
             {callback, callback},
             {"orvelagent://callback?code=secret\xFF"}}) {
        const Run misused = run(arguments);
        EXPECT_EQ(misused.status, 2);
        EXPECT_THAT(misused.errors, AllOf(HasSubstr("usage: "), Not(HasSubstr("secret"))));
        EXPECT_EQ(misused.output, "");
    }
}

TEST_F(BrowserAuthenticationSessionTest, SignsInWithTheDefaultBrowser) {
    BrowserScript browser;
    browser.stayOpen();
    XdgWorkspace workspace(agent_.clock);
    Session session(workspace, agent_.clock, agent_.log, [](const auto& ready) { ready(); });
    std::vector<Session::Outcome> outcomes;
    const auto attempt = session.start(page, "orvelagent", screen, [&](Session::Outcome outcome) {
        outcomes.push_back(std::move(outcome));
    });
    ASSERT_TRUE(waitUntil([&] { return !browser.url().empty(); }));
    // Every account can read this command line.
    const std::string commandLine = contentOf("/proc/" + browser.pid() + "/cmdline");
    EXPECT_THAT(commandLine, AllOf(HasSubstr(browser.url()), Not(HasSubstr("secret"))));
    EXPECT_EQ(LoopbackClient::location(LoopbackClient::visit(browser.url())), page);
    EXPECT_EQ(run({callback}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return !outcomes.empty(); }));
    EXPECT_EQ(std::get<std::string>(outcomes.front()), callback);
}

} // namespace orvel::test
