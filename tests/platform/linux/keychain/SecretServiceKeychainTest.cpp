// SPDX-License-Identifier: Apache-2.0
//
// Tests behaviour specific to the Secret Service: other processes, locked keyrings, and desktops
// without one.
#include "platform/linux/keychain/SecretServiceKeychain.h"

#include "core/FileDescriptor.h"
#include "core/Secret.h"
#include "platform/linux/support/SessionBus.h"
#include "tests/platform/KeychainCalls.h"
#include "tests/platform/linux/keychain/KeyringDesktop.h"
#include "tests/platform/linux/keychain/SilentBus.h"
#include "tests/support/HiddenToken.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::StartsWith;

constexpr auto service = "app.test.session";
constexpr auto account = "probe";

class SecretServiceKeychainTest : public testing::Test {
protected:
    SecretServiceKeychainTest() {
        EXPECT_EQ(failureOf(startRemove(keychain_, service, account)), "");
    }

    /// Runs the probe with these commands and returns its output.
    static std::string
    probe(std::vector<std::string> commands, std::map<std::string, std::string> environment = {}) {
        commands.insert(commands.begin(), KEYCHAIN_PROBE);
        Program program({std::move(commands), std::move(environment)});
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(program.errors(), "");
        return program.output();
    }

    KeyringDesktop desktop_;
    ManualClock clock_;
    RecordingLogStore log_;
    SecretServiceKeychain keychain_{clock_, log_};
};

const std::map<std::string, std::string> withoutBus = {
    {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}};

} // namespace

TEST_F(SecretServiceKeychainTest, AnotherProcessReadsWhatOneWrote) {
    EXPECT_EQ(probe({"value"}), "failure: \n");
    EXPECT_EQ(probe({"read"}), "value: value\n");
    EXPECT_THAT(textOf(startRead(keychain_, service, account)), Optional(std::string("value")));
    EXPECT_EQ(probe({"remove"}), "failure: \n");
    EXPECT_EQ(probe({"read"}), "value: none\n");
}

TEST_F(SecretServiceKeychainTest, IsUsedOnEveryDesktop) {
    for (const char* desktop : {"", "GNOME", "KDE", "sway"}) {
        const std::map<std::string, std::string> environment = {
            {"XDG_CURRENT_DESKTOP", desktop}, {"KDE_SESSION_VERSION", "5"}};
        EXPECT_EQ(probe({desktop + std::string("value")}, environment), "failure: \n");
        EXPECT_THAT(desktop_.values(service, account), ElementsAre(desktop + std::string("value")));
    }
}

TEST_F(SecretServiceKeychainTest, AnItemThatIsNotTextHasNoValue) {
    desktop_.add(service, account, "\xFF\xFE");
    EXPECT_EQ(textOf(startRead(keychain_, service, account)), std::nullopt);
}

TEST_F(SecretServiceKeychainTest, WithoutABusChangesStayInMemoryAndAreLoggedOnce) {
    const std::string printed =
        probe({"read", "value", "read", "remove", "read", "again", "read"}, withoutBus);
    EXPECT_THAT(
        printed,
        AllOf(
            StartsWith("value: none\nfailure: Could not change the keychain: "),
            HasSubstr("\nvalue: value\nfailure: Could not change the keychain: "),
            HasSubstr("\nvalue: none\nfailure: Could not change the keychain: "),
            HasSubstr("\nvalue: again\nlog: keychain: the keychain cannot be read: "),
            HasSubstr("\nlog: keychain: the session is kept in memory only: ")));
    EXPECT_EQ(printed.find("memory only"), printed.rfind("memory only"));
    EXPECT_THAT(desktop_.values(service, account), IsEmpty());
}

TEST_F(SecretServiceKeychainTest, WithoutAGLibEventLoopChangesStayInMemory) {
    EXPECT_THAT(
        probe({"read", "value", "read"}, {{"QT_NO_GLIB", "1"}}),
        StartsWith("value: none\n"
                   "failure: Could not change the keychain: Qt runs without GLib\n"
                   "value: value\n"));
}

TEST_F(SecretServiceKeychainTest, NothingIsStoredAsPlainTextWithoutTheSecretService) {
    const TemporaryDirectory folder;
    // A library that cannot be loaded: QtKeychain then looks for a wallet, and there is none.
    const std::filesystem::path library = folder / "libsecret-1.so.0";
    std::ofstream(library).close();
    const std::string printed = probe(
        {"value", "read"},
        {{"LD_LIBRARY_PATH", folder.path().string()},
         {"XDG_CONFIG_HOME", (folder / "configuration").string()},
         {"XDG_CURRENT_DESKTOP", "KDE"},
         {"KDE_SESSION_VERSION", "5"}});
    EXPECT_THAT(
        printed,
        AllOf(
            StartsWith("failure: Could not change the keychain: "), HasSubstr("\nvalue: value\n")));
    EXPECT_FALSE(std::filesystem::exists(folder / "configuration"));
}

TEST_F(SecretServiceKeychainTest, AReadLeavesNoCopyOfItsValueInMemory) {
    // Another process writes it, because QtKeychain does not overwrite what it writes.
    const auto read = [this](const HiddenToken& token) {
        const TemporaryDirectory folder;
        const std::filesystem::path file = folder / "value";
        {
            const tavrin::FileDescriptor descriptor(
                open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
            std::string text = token.text();
            EXPECT_EQ(
                ::write(descriptor.get(), text.data(), text.size()),
                static_cast<ssize_t>(text.size()));
            tavrin::wipe(text);
        }
        EXPECT_EQ(probe({"@" + file.string()}), "failure: \n");
        bool hasValue = false;
        keychain_.read(service, account, [&](const Keychain::Reading& reading) {
            hasValue = reading.value.has_value();
            EXPECT_GE(token.copiesInMemory(), 1U);
        });
        EXPECT_TRUE(waitUntil([&] { return hasValue; }));
    };
    // The first time, calling a library's function may leave registers on the stack.
    read(HiddenToken());
    const HiddenToken token;
    read(token);
    EXPECT_EQ(token.copiesInMemory(), 0U);
}

TEST_F(SecretServiceKeychainTest, ANewerWriteThatFailsIsNotForgottenWithAnOlderOne) {
    bool hasWritten = false;
    keychain_.write(service, account, tavrin::Secret("old"), [&](const auto& failure) {
        EXPECT_FALSE(failure);
        // The newer write has not started yet.
        desktop_.lock();
        hasWritten = true;
    });
    const auto newer = startWrite(keychain_, service, account, "new");
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    EXPECT_TRUE(hasWritten);
    EXPECT_THAT(textOf(startRead(keychain_, service, account)), Optional(std::string("new")));
    desktop_.dismissDialogs();
    EXPECT_THAT(failureOf(newer), StartsWith("Could not change the keychain: "));
    EXPECT_THAT(textOf(startRead(keychain_, service, account)), Optional(std::string("new")));
}

TEST_F(SecretServiceKeychainTest, ALockedKeyringBlocksOnlyOperationsThatNeedIt) {
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "kept")), "");
    desktop_.lock();
    const auto waiting = startRead(keychain_, service, account);
    // The event loop keeps running meanwhile.
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    const auto write = startWrite(keychain_, service, account, "new");
    EXPECT_THAT(textOf(startRead(keychain_, service, account)), Optional(std::string("new")));
    EXPECT_FALSE(waiting.isDone() || write.isDone());
    EXPECT_EQ(desktop_.dialogs(), 1U);

    desktop_.dismissDialogs();
    EXPECT_EQ(textOf(waiting), std::nullopt);
    // Otherwise its dialog could appear before the next test's desktop exists.
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    desktop_.dismissDialogs();
    EXPECT_THAT(failureOf(write), StartsWith("Could not change the keychain: "));
}

TEST_F(SecretServiceKeychainTest, AWriteToAKeyringThatStaysLockedStaysInMemory) {
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "kept")), "");
    desktop_.lock();
    const auto write = startWrite(keychain_, service, account, "new");
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    desktop_.dismissDialogs();
    EXPECT_THAT(failureOf(write), StartsWith("Could not change the keychain: "));
    EXPECT_THAT(textOf(startRead(keychain_, service, account)), Optional(std::string("new")));

    desktop_.unlock();
    EXPECT_THAT(desktop_.values(service, account), ElementsAre("kept"));
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "newer")), "");
    EXPECT_THAT(desktop_.values(service, account), ElementsAre("newer"));
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_THAT(log_.lines().front().message, HasSubstr("kept in memory only"));
}

TEST_F(SecretServiceKeychainTest, ALockedItemIsRemovedOnceItIsUnlocked) {
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "kept")), "");
    desktop_.lock();
    const auto removal = startRemove(keychain_, service, account);
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    desktop_.unlock();
    desktop_.dismissDialogs();
    EXPECT_EQ(failureOf(removal), "");
    EXPECT_THAT(desktop_.values(service, account), IsEmpty());
}

TEST_F(SecretServiceKeychainTest, RemovingAnItemThatStaysLockedFails) {
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "kept")), "");
    desktop_.lock();
    const auto removal = startRemove(keychain_, service, account);
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    desktop_.dismissDialogs();
    EXPECT_EQ(failureOf(removal), "Could not change the keychain: it is locked");
    EXPECT_EQ(textOf(startRead(keychain_, service, account)), std::nullopt);
}

TEST_F(SecretServiceKeychainTest, WithoutABusAFailedRemovalIsLoggedOnce) {
    const std::string printed = probe({"remove", "remove", "value"}, withoutBus);
    constexpr auto notRemoved =
        "\nlog: keychain: an item could not be removed from the keychain: Could not change the "
        "keychain: there is no session bus\n";
    EXPECT_THAT(
        printed,
        AllOf(
            HasSubstr(notRemoved),
            HasSubstr("\nlog: keychain: the session is kept in memory only: ")));
    EXPECT_EQ(printed.find(notRemoved), printed.rfind(notRemoved));
}

namespace {

/// Whether the event loop keeps running and a removal times out.
bool isNotHeldUpByASilentBus() {
    const SilentBus bus;
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.address()));
    ManualClock clock;
    RecordingLogStore log;
    SecretServiceKeychain keychain(clock, log);
    const auto removal = startRemove(keychain, service, account);
    processEvents();
    const bool hasWaited = !removal.isDone();
    clock.advance(SessionBus::longestConnecting);
    const bool hasFailed =
        failureOf(removal) == "Could not change the keychain: there is no session bus";
    const auto read = startRead(keychain, service, "other");
    int turns = 0;
    return hasWaited && hasFailed && waitUntil([&] { return ++turns > 10; }) && !read.isDone();
}

} // namespace

TEST(SecretServiceKeychainDeathTest, ASilentBusDoesNotBlockTheEventLoop) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(isNotHeldUpByASilentBus() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(SecretServiceKeychainTest, RemovingAMissingItemFromALockedKeyringAsksNoUser) {
    desktop_.lock();
    EXPECT_EQ(failureOf(startRemove(keychain_, service, account)), "");
    EXPECT_EQ(desktop_.dialogs(), 0U);
}

TEST_F(SecretServiceKeychainTest, MayBeDestroyedWhileTheUserIsAsked) {
    EXPECT_EQ(failureOf(startWrite(keychain_, service, account, "kept")), "");
    desktop_.lock();
    auto keychain = std::make_unique<SecretServiceKeychain>(clock_, log_);
    const auto read = startRead(*keychain, service, account);
    ASSERT_TRUE(waitUntil([this] { return desktop_.dialogs() == 1; }));
    keychain.reset();
    desktop_.dismissDialogs();
    // Queued behind it in QtKeychain.
    EXPECT_EQ(textOf(startRead(keychain_, service, "other")), std::nullopt);
    EXPECT_FALSE(read.isDone());
}

} // namespace orvel::test
