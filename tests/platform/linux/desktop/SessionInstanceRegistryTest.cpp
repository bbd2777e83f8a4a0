// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/SessionInstanceRegistry.h"

#include "tests/platform/linux/BusDaemon.h"
#include "tests/platform/linux/keychain/SilentBus.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::StartsWith;

/// Copies of a program that start in the same session, or outside any session.
class SessionInstanceRegistryTest : public testing::Test {
protected:
    std::unique_ptr<Program> start(std::map<std::string, std::string> environment = {}) {
        environment.emplace("XDG_RUNTIME_DIR", runtime_.path().string());
        return std::make_unique<Program>(
            Program::Options{{DESKTOP_PROBE, "claim", "app.test.Copies"}, std::move(environment)});
    }

    static std::string firstLine(const Program& program) {
        EXPECT_TRUE(waitUntil([&] { return program.output().find('\n') != std::string::npos; }));
        return program.output().substr(0, program.output().find('\n'));
    }

    /// Starts several copies at the same time: one keeps running, and the others report it.
    void expectOneOf(const std::map<std::string, std::string>& environment) {
        constexpr int count = 6;
        std::vector<std::unique_ptr<Program>> copies;
        for (int copy = 0; copy < count; ++copy) {
            copies.push_back(start(environment));
        }
        std::vector<std::string> lines;
        for (const auto& copy : copies) {
            lines.push_back(firstLine(*copy));
        }
        EXPECT_EQ(std::ranges::count(lines, "first"), 1);
        std::ranges::sort(lines);
        EXPECT_EQ(std::unique(lines.begin(), lines.end()) - lines.begin(), 2)
            << testing::PrintToString(lines);
    }

    TemporaryDirectory runtime_;
    const std::map<std::string, std::string> noBus_ = {
        {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}};
};

} // namespace

TEST_F(SessionInstanceRegistryTest, OneOfSeveralSimultaneousCopiesKeepsRunning) {
    expectOneOf({});
}

TEST_F(SessionInstanceRegistryTest, OneOfSeveralSimultaneousCopiesKeepsRunningWithoutABus) {
    expectOneOf(noBus_);
}

TEST_F(SessionInstanceRegistryTest, ACopyWithoutABusFindsTheOneWithIt) {
    const auto first = start();
    ASSERT_EQ(firstLine(*first), "first");
    const auto second = start(noBus_);
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    EXPECT_EQ(second->wait(), 0);
}

TEST_F(SessionInstanceRegistryTest, ACopyWithTheBusFindsTheOneWithoutIt) {
    const auto first = start(noBus_);
    ASSERT_EQ(firstLine(*first), "first");
    const auto second = start();
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    EXPECT_EQ(second->wait(), 0);
}

TEST_F(SessionInstanceRegistryTest, ASilentBusCountsAsMissing) {
    const SilentBus silent;
    const std::map<std::string, std::string> environment = {
        {"DBUS_SESSION_BUS_ADDRESS", silent.address()}};
    const auto first = start(environment);
    EXPECT_EQ(firstLine(*first), "first");
    const auto second = start(environment);
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    // Earlier than libdbus's timeout of 25 s.
    EXPECT_EQ(second->waitFor(std::chrono::seconds(15)), 0);
}

TEST_F(SessionInstanceRegistryTest, ASlowBusIsUsedOnceItAnswers) {
    BusDaemon bus;
    bus.suspend();
    const std::map<std::string, std::string> environment = {
        {"DBUS_SESSION_BUS_ADDRESS", bus.address()}};
    const auto first = start(environment);
    ASSERT_EQ(firstLine(*first), "first");
    bus.resume();
    const QString observer = QStringLiteral("an observer");
    const QDBusConnection connection =
        QDBusConnection::connectToBus(QString::fromStdString(bus.address()), observer);
    EXPECT_TRUE(waitUntil([&] {
        return connection.interface()->isServiceRegistered(QStringLiteral("app.test.Copies"));
    }));
    QDBusConnection::disconnectFromBus(observer);
    const auto second = start(environment);
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    EXPECT_TRUE(waitUntil([&] { return first->output() == "first\nactivated\n"; }));
}

TEST_F(SessionInstanceRegistryTest, AKilledCopyNoLongerCounts) {
    auto first = start();
    ASSERT_EQ(firstLine(*first), "first");
    first->signal(SIGKILL);
    first->wait();
    const auto next = start();
    EXPECT_EQ(firstLine(*next), "first");
}

TEST_F(SessionInstanceRegistryTest, EveryMethodOfTheApplicationActivatesIt) {
    const auto first = start();
    ASSERT_EQ(firstLine(*first), "first");
    const auto call = [](const char* method, const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            QStringLiteral("app.test.Copies"),
            QStringLiteral("/app/test/Copies"),
            QStringLiteral("org.freedesktop.Application"),
            QString::fromLatin1(method));
        message.setArguments(arguments);
        return QDBusConnection::connectToBus(
                   QDBusConnection::SessionBus, QStringLiteral("a launcher"))
            .call(message)
            .type();
    };
    EXPECT_EQ(call("Activate", {QVariantMap()}), QDBusMessage::ReplyMessage);
    EXPECT_EQ(
        call("Open", {QStringList(QStringLiteral("file:///etc/passwd")), QVariantMap()}),
        QDBusMessage::ReplyMessage);
    EXPECT_EQ(
        call("ActivateAction", {QStringLiteral("quit"), QVariantList(), QVariantMap()}),
        QDBusMessage::ReplyMessage);
    EXPECT_TRUE(
        waitUntil([&] { return first->output() == "first\nactivated\nactivated\nactivated\n"; }));
    EXPECT_EQ(call("Activate", {}), QDBusMessage::ErrorMessage);
    EXPECT_EQ(call("Quit", {}), QDBusMessage::ErrorMessage);
    EXPECT_FALSE(first->waitFor({}).has_value());
    QDBusConnection::disconnectFromBus(QStringLiteral("a launcher"));
}

TEST_F(SessionInstanceRegistryTest, ReleasesTheNameWhileItsBusIsStillInUse) {
    const auto isTaken = [] {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QStringLiteral("app.test.Registry"));
    };
    auto registry = std::make_unique<SessionInstanceRegistry>();
    EXPECT_EQ(registry->shareBus(), nullptr) << "before there was one";
    ASSERT_FALSE(registry->runningCopy("app.test.Registry"));
    EXPECT_TRUE(isTaken());
    const std::unique_ptr<SessionBus> bus = registry->shareBus();
    ASSERT_NE(bus, nullptr);

    registry.reset();
    EXPECT_TRUE(waitUntil([&] { return !isTaken(); }));
    EXPECT_TRUE(bus->isConnected());
}

TEST_F(SessionInstanceRegistryTest, CallsOnTheBusDoNotChangeTheEnvironment) {
    SessionInstanceRegistry registry;
    ASSERT_FALSE(registry.runningCopy("app.test.Registry"));
    bool isActivated = false;
    const auto subscription = registry.onActivation([&] { isActivated = true; });
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("app.test.Registry"),
        QStringLiteral("/app/test/Registry"),
        QStringLiteral("org.freedesktop.Application"),
        QStringLiteral("Activate"));
    call << QVariantMap{{QStringLiteral("activation-token"), QStringLiteral("theirs")}};
    QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("a launcher"))
        .send(call);
    EXPECT_TRUE(waitUntil([&] { return isActivated; }));
    QDBusConnection::disconnectFromBus(QStringLiteral("a launcher"));
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));
}

} // namespace orvel::test
