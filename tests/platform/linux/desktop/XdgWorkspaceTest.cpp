// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/XdgWorkspace.h"

#include "tests/platform/linux/BusDaemon.h"
#include "tests/platform/linux/BusService.h"
#include "tests/platform/linux/keychain/SilentBus.h"
#include "tests/platform/linux/signin/BrowserScript.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"

#include <QDBusConnectionInterface>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class XdgWorkspaceTest : public testing::Test {
protected:
    Workspace::Completion completion() {
        return [this](const std::optional<tavrin::PlatformError>& error) {
            ++ends_;
            failure_ = error ? error->what() : "";
        };
    }

    void open(const std::string& url) {
        workspace_->openURL(url, completion());
        EXPECT_EQ(ends_, 0) << "answered before the call returned";
    }

    /// Why what was started last failed; empty when it did not.
    std::string failure() {
        EXPECT_TRUE(waitUntil([this] { return ends_ > 0; }));
        return failure_;
    }

    std::string failureOf(const std::string& url) {
        open(url);
        return failure();
    }

    BrowserScript browser_;
    ManualClock clock_;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_, "/bin/false");
    int ends_ = 0;
    std::string failure_;
};

/// A file manager that notes what it is asked for, as "ShowItems file:///…".
class FileManagerService {
public:
    /// Methods that it does not have.
    std::vector<std::string> missing;
    std::vector<std::string> calls;

private:
    QDBusMessage answer(const QDBusMessage& call) {
        const std::string method = call.member().toStdString();
        if (testing::Value(missing, testing::Contains(method))) {
            return call.createErrorReply(QDBusError::UnknownMethod, QString());
        }
        calls.push_back(
            method + ' ' + call.arguments().value(0).toStringList().join(u' ').toStdString());
        return call.createReply();
    }

    BusService service_{
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        [this](const QDBusMessage& call) {
            return answer(call);
        }};
};

/// A folder that is the home, and the only one with programs.
class XdgWorkspaceHomeTest : public XdgWorkspaceTest {
protected:
    XdgWorkspaceHomeTest() {
        qputenv("HOME", QByteArray::fromStdString(home_.path().string()));
        qunsetenv("XDG_CURRENT_DESKTOP");
    }
    ~XdgWorkspaceHomeTest() override {
        qputenv("HOME", ofHome_);
        qputenv("PATH", ofPath_);
        qunsetenv("XDG_CURRENT_DESKTOP");
    }

    /// A program that notes its arguments.
    void install(const std::string& name, int status = 0) {
        const std::filesystem::path program = home_ / "bin" / name;
        std::filesystem::create_directories(program.parent_path());
        std::ofstream(program) << "#!/bin/sh\nprintf '%s\\n' \"${0##*/} $*\" >>" << (home_ / "ran")
                               << "\nexit " << status << '\n';
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        qputenv("PATH", QByteArray::fromStdString((home_ / "bin").string()));
    }

    std::string ran() const { return contentOf(home_ / "ran"); }

    static std::string contentOf(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string uri(const std::string& path) const { return "file://" + (home_ / path).string(); }

    TemporaryDirectory home_;
    QByteArray ofHome_ = qgetenv("HOME");
    QByteArray ofPath_ = qgetenv("PATH");
};

/// Copies of a program that start in the same session, or outside of any.
class XdgWorkspaceCopiesTest : public testing::Test {
protected:
    std::unique_ptr<Program> start(std::map<std::string, std::string> environment = {}) {
        environment.emplace("XDG_RUNTIME_DIR", runtime_.path().string());
        return std::make_unique<Program>(Program::Options{
            {WORKSPACE_PROBE, "claim", "app.test.Copies"}, std::move(environment)});
    }

    static std::string firstLine(const Program& program) {
        EXPECT_TRUE(waitUntil([&] { return program.output().find('\n') != std::string::npos; }));
        return program.output().substr(0, program.output().find('\n'));
    }

    /// Starts several in the same instant: one stays, and the others name it.
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

TEST_F(XdgWorkspaceTest, OpensThePageInTheBrowser) {
    const std::string url = "https://www.example.com/link?a=b&c=%20d&e='f'(g);#h";
    EXPECT_EQ(failureOf(url), "");
    EXPECT_EQ(browser_.url(), url);
}

TEST_F(XdgWorkspaceTest, SaysThatTheBrowserFailed) {
    browser_.fail();
    EXPECT_THAT(
        failureOf("https://www.example.com/"),
        StartsWith("Could not open the browser: xdg-open ended with status "));
}

TEST_F(XdgWorkspaceTest, SaysThatTheDesktopHasNoSuchProgram) {
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", "/nonexistent");
    EXPECT_EQ(
        failureOf("https://www.example.com/"),
        "Could not open the browser: xdg-open: No such file or directory");
    qputenv("PATH", path);
}

TEST_F(XdgWorkspaceTest, ABrowserThatStaysInTheForegroundIsASuccess) {
    browser_.stayOpen();
    open("https://www.example.com/");
    ASSERT_TRUE(waitUntil([this] { return !browser_.url().empty(); }));
    clock_.advance(tavrin::Seconds(4));
    EXPECT_EQ(ends_, 0);
    clock_.advance(tavrin::Seconds(1));
    EXPECT_EQ(ends_, 1);
    EXPECT_EQ(failure_, "");
}

TEST_F(XdgWorkspaceTest, AnswersOnce) {
    EXPECT_EQ(failureOf("https://www.example.com/"), "");
    clock_.advance(tavrin::Seconds(60));
    processEvents();
    EXPECT_EQ(ends_, 1);
}

TEST_F(XdgWorkspaceTest, RefusesEverythingButHttpsAddresses) {
    for (const char* url :
         {"",
          "http://www.example.com/",
          "file:///etc/passwd",
          "orvelagent://callback",
          "--help",
          " https://www.example.com/",
          "https://www.example.com/ x",
          "https://www.example.com/\n",
          "https://www.example.com/\"`x`",
          "https://www.example.com/\\",
          "https://www.example.com/\xC3\xA9"}) {
        ends_ = 0;
        EXPECT_EQ(
            failureOf(url), "Could not open the browser: the address is not a valid https one")
            << url;
    }
    EXPECT_EQ(browser_.url(), "");
}

TEST_F(XdgWorkspaceTest, KeepsOurVariablesFromTheBrowser) {
    qputenv("ORVEL_AGENT_TOKEN", "secret");
    EXPECT_EQ(failureOf("https://www.example.com/"), "");
    qunsetenv("ORVEL_AGENT_TOKEN");
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("ORVEL_")));
    EXPECT_THAT(browser_.environment(), HasSubstr("PATH="));
}

TEST_F(XdgWorkspaceTest, KeepsTheRightToComeToTheFrontFromTheBrowser) {
    qputenv("XDG_ACTIVATION_TOKEN", "ours");
    qputenv("DESKTOP_STARTUP_ID", "ours");
    EXPECT_EQ(failureOf("https://www.example.com/"), "");
    qunsetenv("XDG_ACTIVATION_TOKEN");
    qunsetenv("DESKTOP_STARTUP_ID");
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("XDG_ACTIVATION_TOKEN=")));
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("DESKTOP_STARTUP_ID=")));
}

TEST_F(XdgWorkspaceTest, NobodyOnTheBusChangesItsVariables) {
    ASSERT_FALSE(workspace_->runningCopy("app.test.Workspace"));
    bool isActivated = false;
    const auto subscription = workspace_->onActivation([&] { isActivated = true; });
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("app.test.Workspace"),
        QStringLiteral("/app/test/Workspace"),
        QStringLiteral("org.freedesktop.Application"),
        QStringLiteral("Activate"));
    call << QVariantMap{{QStringLiteral("activation-token"), QStringLiteral("theirs")}};
    QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("a launcher"))
        .send(call);
    EXPECT_TRUE(waitUntil([&] { return isActivated; }));
    QDBusConnection::disconnectFromBus(QStringLiteral("a launcher"));
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));
}

TEST_F(XdgWorkspaceTest, DestroyingItLeavesTheBrowserAlone) {
    browser_.stayOpen();
    open("https://www.example.com/");
    ASSERT_TRUE(waitUntil([this] { return !browser_.url().empty(); }));
    workspace_.reset();
    const std::filesystem::path process = "/proc/" + browser_.pid();
    EXPECT_TRUE(std::filesystem::exists(process));
    browser_.close();
    // Not even as a zombie.
    EXPECT_TRUE(waitUntil([&] { return !std::filesystem::exists(process); }));
    processEvents();
    EXPECT_EQ(ends_, 0);
}

TEST_F(XdgWorkspaceTest, TheCompletionMayDestroyIt) {
    workspace_->openURL("https://www.example.com/", [this](const auto&) {
        workspace_.reset();
        ++ends_;
    });
    EXPECT_TRUE(waitUntil([this] { return ends_ > 0; }));
}

TEST_F(XdgWorkspaceHomeTest, ShowsThePropertiesOfTheMessagesFolder) {
    FileManagerService files;
    std::filesystem::create_directories(home_ / "Library/Messages");
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(ends_, 0);
    EXPECT_EQ(failure(), "");
    EXPECT_THAT(files.calls, ElementsAre("ShowItemProperties " + uri("Library/Messages")));
}

TEST_F(XdgWorkspaceHomeTest, ShowsTheFolderWhereThereAreNoProperties) {
    FileManagerService files;
    files.missing = {"ShowItemProperties"};
    std::filesystem::create_directories(home_ / "Library/Messages");
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_THAT(files.calls, ElementsAre("ShowFolders " + uri("Library/Messages")));
}

TEST_F(XdgWorkspaceHomeTest, OpensTheNearestFolderWithoutAFileManager) {
    install("xdg-open");
    std::filesystem::create_directories(home_ / "Library");
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(ran(), "xdg-open " + (home_ / "Library").string() + '\n');
}

TEST_F(XdgWorkspaceHomeTest, SaysThatNothingShowsTheFolder) {
    install("xdg-open", 3);
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(failure(), "Could not show the Messages folder: xdg-open ended with status 3");
}

TEST_F(XdgWorkspaceHomeTest, RevealsAFile) {
    FileManagerService files;
    std::ofstream(home_ / "orvel agent 50%.deb");
    workspace_->revealFile((home_ / "orvel agent 50%.deb").string(), completion());
    EXPECT_EQ(failure(), "");
    EXPECT_THAT(files.calls, ElementsAre("ShowItems " + uri("orvel%20agent%2050%25.deb")));
}

TEST_F(XdgWorkspaceHomeTest, OpensTheFolderOfAFileWithoutAFileManager) {
    install("xdg-open");
    std::ofstream(home_ / "file");
    workspace_->revealFile((home_ / "file").string(), completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(ran(), "xdg-open " + home_.path().string() + '\n');
}

TEST_F(XdgWorkspaceHomeTest, OpensTheDesktopsOwnPanelForContacts) {
    install("gnome-control-center");
    install("gnome-contacts");
    qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(ran(), "gnome-control-center applications\n");
}

TEST_F(XdgWorkspaceHomeTest, GoesOnToTheAddressBookWhenThePanelFails) {
    install("gnome-control-center", 1);
    install("evolution");
    qputenv("XDG_CURRENT_DESKTOP", "GNOME");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(ran(), "gnome-control-center applications\nevolution --component=contacts\n");
}

TEST_F(XdgWorkspaceHomeTest, LeavesThePanelsOfOtherDesktopsAlone) {
    install("gnome-control-center");
    install("systemsettings");
    install("kaddressbook");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(ran(), "kaddressbook \n");
}

TEST_F(XdgWorkspaceHomeTest, SaysThatTheDesktopHasNothingForContacts) {
    install("xdg-open");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(ends_, 0);
    EXPECT_EQ(
        failure(),
        "Could not open the settings of contacts: this desktop has neither a panel for them nor an "
        "address book");
}

TEST_F(XdgWorkspaceHomeTest, RelaunchesAfterItsEnd) {
    const std::filesystem::path program = home_ / "successor $HOME";
    const std::filesystem::path report = home_ / "report";
    std::ofstream(program)
        << "#!/bin/sh\n"
        << "{ echo variable=$ORVEL_AGENT_BUNDLE$XDG_ACTIVATION_TOKEN; ls /proc/self/fd | wc -l\n"
        << "  echo session=$(cut -d ' ' -f 6 /proc/self/stat); } >" << report << ".new\nmv "
        << report << ".new " << report << '\n';
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    Program probe(
        {{WORKSPACE_PROBE, "relaunch", program.string(), "0.1"},
         {{"ORVEL_AGENT_BUNDLE", "bundle"}, {"XDG_ACTIVATION_TOKEN", "ours"}}});
    EXPECT_EQ(probe.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(report));
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(report); }));
    const std::string text = contentOf(report);
    EXPECT_THAT(text, StartsWith("variable=bundle\n"));
    // The three standard ones, and that of listing them.
    EXPECT_THAT(text, HasSubstr("\n4\n"));
    EXPECT_THAT(text, Not(HasSubstr("session=" + std::to_string(getsid(0)) + "\n")));
}

TEST_F(XdgWorkspaceHomeTest, RelaunchesAfterAMinuteWhenItDoesNotEnd) {
    install("sleep");
    install("successor");
    Program probe({{WORKSPACE_PROBE, "linger", (home_ / "bin/successor").string()}, {}});
    EXPECT_TRUE(waitUntil([this] { return ran().ends_with("successor \n"); }));
    EXPECT_FALSE(probe.waitFor({}).has_value());
    std::string expected;
    for (int second = 0; second < 61; ++second) {
        expected += "sleep 1\n";
    }
    EXPECT_EQ(ran(), expected + "successor \n");
}

TEST_F(XdgWorkspaceCopiesTest, OneIsLeftOfThoseThatStartInTheSameInstant) {
    expectOneOf({});
}

TEST_F(XdgWorkspaceCopiesTest, OneIsLeftOfThoseThatStartInTheSameInstantWithoutABus) {
    expectOneOf(noBus_);
}

TEST_F(XdgWorkspaceCopiesTest, ACopyWithoutABusFindsTheOneWithIt) {
    const auto first = start();
    ASSERT_EQ(firstLine(*first), "first");
    const auto second = start(noBus_);
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    EXPECT_EQ(second->wait(), 0);
}

TEST_F(XdgWorkspaceCopiesTest, ACopyWithTheBusFindsTheOneWithoutIt) {
    const auto first = start(noBus_);
    ASSERT_EQ(firstLine(*first), "first");
    const auto second = start();
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    EXPECT_EQ(second->wait(), 0);
}

TEST_F(XdgWorkspaceCopiesTest, ABusThatSaysNothingCountsAsNone) {
    const SilentBus silent;
    const std::map<std::string, std::string> environment = {
        {"DBUS_SESSION_BUS_ADDRESS", silent.address()}};
    const auto first = start(environment);
    EXPECT_EQ(firstLine(*first), "first");
    const auto second = start(environment);
    EXPECT_THAT(firstLine(*second), StartsWith("other "));
    // Not only when the bus library has given up, after 25 s.
    EXPECT_EQ(second->waitFor(std::chrono::seconds(15)), 0);
}

TEST_F(XdgWorkspaceCopiesTest, ABusThatWasTooSlowAtFirstReachesTheCopyLater) {
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

TEST_F(XdgWorkspaceCopiesTest, ACopyThatWasKilledIsNoneAnyMore) {
    auto first = start();
    ASSERT_EQ(firstLine(*first), "first");
    first->signal(SIGKILL);
    first->wait();
    const auto next = start();
    EXPECT_EQ(firstLine(*next), "first");
}

TEST_F(XdgWorkspaceCopiesTest, EveryWayOfAskingForTheApplicationActivatesIt) {
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

} // namespace orvel::test
