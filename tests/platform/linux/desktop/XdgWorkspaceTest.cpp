// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/XdgWorkspace.h"

#include "tests/platform/linux/BusService.h"
#include "tests/platform/linux/desktop/InstalledPrograms.h"
#include "tests/platform/linux/signin/BrowserScript.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvel::test {

namespace {

/// A disk that does not answer until it is destroyed. One at a time.
class HangingDisk final {
public:
    explicit HangingDisk(std::filesystem::path folder) : folder_(std::move(folder)) {
        current = this;
    }
    ~HangingDisk() {
        std::unique_lock lock(mutex_);
        isAnswering_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return waiting_ == 0; });
        current = nullptr;
    }
    HangingDisk(const HangingDisk&) = delete;
    HangingDisk& operator=(const HangingDisk&) = delete;

    /// Called before the status of a file is read.
    static void access(std::string_view path) {
        if (current != nullptr && path.starts_with(current->folder_.native())) {
            current->wait();
        }
    }

    [[nodiscard]] bool hasBeenAsked() {
        const std::lock_guard lock(mutex_);
        return wasAsked_;
    }
    /// Whether the thread that created this object asked. It did not have to wait.
    [[nodiscard]] bool wouldHaveBlockedTheMainThread() {
        const std::lock_guard lock(mutex_);
        return mainAsked_;
    }

private:
    void wait() {
        std::unique_lock lock(mutex_);
        wasAsked_ = true;
        if (std::this_thread::get_id() == main_) {
            mainAsked_ = true;
            return;
        }
        ++waiting_;
        changed_.wait(lock, [this] { return isAnswering_; });
        --waiting_;
        changed_.notify_all();
    }

    static HangingDisk* current;

    const std::filesystem::path folder_;
    const std::thread::id main_ = std::this_thread::get_id();
    std::mutex mutex_;
    std::condition_variable changed_;
    bool wasAsked_ = false;
    bool mainAsked_ = false;
    bool isAnswering_ = false;
    int waiting_ = 0;
};

HangingDisk* HangingDisk::current = nullptr;

} // namespace

} // namespace orvel::test

/// In place of the C library's.
extern "C" int stat(const char* path, struct stat* status) {
    orvel::test::HangingDisk::access(path);
    return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, 0));
}

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

    /// The last call's error; empty on success.
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
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_);
    int ends_ = 0;
    std::string failure_;
};

/// A file manager that records calls, such as "ShowItems file:///…".
class FileManagerService {
public:
    /// Unsupported methods.
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

/// Replaces the home folder, and the PATH by a folder of test programs.
class XdgWorkspaceHomeTest : public XdgWorkspaceTest {
protected:
    XdgWorkspaceHomeTest() {
        qputenv("HOME", QByteArray::fromStdString(home_.path().string()));
        qunsetenv("XDG_CURRENT_DESKTOP");
    }
    ~XdgWorkspaceHomeTest() override {
        qputenv("HOME", previousHome_);
        qunsetenv("XDG_CURRENT_DESKTOP");
    }

    std::string uri(const std::string& path) const { return "file://" + (home_ / path).string(); }

    TemporaryDirectory home_;
    QByteArray previousHome_ = qgetenv("HOME");
    InstalledPrograms programs_;
};

} // namespace

TEST_F(XdgWorkspaceTest, OpensThePageInTheBrowser) {
    const std::string url = "https://www.example.com/link?a=b&c=%20d&e='f'(g);#h";
    EXPECT_EQ(failureOf(url), "");
    EXPECT_EQ(browser_.url(), url);
}

TEST_F(XdgWorkspaceTest, ReportsAFailedBrowser) {
    browser_.fail();
    EXPECT_THAT(
        failureOf("https://www.example.com/"),
        StartsWith("Could not open the browser: xdg-open ended with status "));
}

TEST_F(XdgWorkspaceTest, ReportsAMissingProgram) {
    const QByteArray path = qgetenv("PATH");
    const TemporaryDirectory empty;
    qputenv("PATH", QByteArray::fromStdString(empty.path().string()));
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

TEST_F(XdgWorkspaceTest, OpensAnAddressOfThisMachine) {
    const std::string url = "http://127.0.0.1:49152/0123456789abcdef";
    EXPECT_EQ(failureOf(url), "");
    EXPECT_EQ(browser_.url(), url);
}

TEST_F(XdgWorkspaceTest, RejectsAllButHttpsAddressesAndThoseOfThisMachine) {
    for (const char* url :
         {"",
          "http://www.example.com/",
          "http://127.0.0.1/",
          "http://127.0.0.1:/",
          "http://127.0.0.1:80",
          "http://127.0.0.1:80@www.example.com/",
          "http://127.0.0.1.example.com:80/",
          "http://127.0.0.1:80/ x",
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

TEST_F(XdgWorkspaceTest, TheBrowserDoesNotInheritTheAgentsVariables) {
    qputenv("ORVEL_AGENT_TOKEN", "secret");
    EXPECT_EQ(failureOf("https://www.example.com/"), "");
    qunsetenv("ORVEL_AGENT_TOKEN");
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("ORVEL_")));
    EXPECT_THAT(browser_.environment(), HasSubstr("PATH="));
}

TEST_F(XdgWorkspaceTest, TheBrowserDoesNotInheritTheActivationToken) {
    qputenv("XDG_ACTIVATION_TOKEN", "ours");
    qputenv("DESKTOP_STARTUP_ID", "ours");
    EXPECT_EQ(failureOf("https://www.example.com/"), "");
    qunsetenv("XDG_ACTIVATION_TOKEN");
    qunsetenv("DESKTOP_STARTUP_ID");
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("XDG_ACTIVATION_TOKEN=")));
    EXPECT_THAT(browser_.environment(), Not(HasSubstr("DESKTOP_STARTUP_ID=")));
}

TEST_F(XdgWorkspaceTest, DestroyingItDoesNotEndTheBrowser) {
    browser_.stayOpen();
    open("https://www.example.com/");
    ASSERT_TRUE(waitUntil([this] { return !browser_.url().empty(); }));
    workspace_.reset();
    const std::filesystem::path process = "/proc/" + browser_.pid();
    EXPECT_TRUE(std::filesystem::exists(process));
    browser_.close();
    // It must not remain as a zombie either.
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

TEST_F(XdgWorkspaceHomeTest, ShowsTheFolderIfPropertiesAreUnsupported) {
    FileManagerService files;
    files.missing = {"ShowItemProperties"};
    std::filesystem::create_directories(home_ / "Library/Messages");
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_THAT(files.calls, ElementsAre("ShowFolders " + uri("Library/Messages")));
}

TEST_F(XdgWorkspaceHomeTest, OpensTheNearestFolderWithoutAFileManager) {
    programs_.install("xdg-open");
    std::filesystem::create_directories(home_ / "Library");
    workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(programs_.ran(), "xdg-open " + (home_ / "Library").string() + '\n');
}

TEST_F(XdgWorkspaceHomeTest, ReportsThatTheFolderCannotBeShown) {
    programs_.install("xdg-open", 3);
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
    programs_.install("xdg-open");
    std::ofstream(home_ / "file");
    workspace_->revealFile((home_ / "file").string(), completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(programs_.ran(), "xdg-open " + home_.path().string() + '\n');
}

TEST_F(XdgWorkspaceHomeTest, ADiskThatDoesNotAnswerBlocksNothing) {
    programs_.install("xdg-open");
    const auto reveal = [this] {
        workspace_->revealFile((home_ / "file").string(), completion());
    };
    const auto openFolder = [this] {
        workspace_->openSettings(Workspace::SettingsPane::FullDiskAccess, completion());
    };
    const std::vector<std::pair<std::function<void()>, std::string>> cases = {
        {reveal, "Could not show the file: the disk does not answer"},
        {openFolder, "Could not show the Messages folder: the disk does not answer"}};
    for (const auto& [show, expected] : cases) {
        ends_ = 0;
        HangingDisk disk(home_.path());
        show();
        ASSERT_TRUE(waitUntil([&] { return disk.hasBeenAsked(); }));
        EXPECT_FALSE(disk.wouldHaveBlockedTheMainThread());
        clock_.advance(tavrin::Seconds(4));
        EXPECT_EQ(ends_, 0);
        clock_.advance(tavrin::Seconds(1));
        EXPECT_EQ(ends_, 1);
        EXPECT_EQ(failure_, expected);
    }
    processEvents();
    EXPECT_EQ(ends_, 1);
    EXPECT_EQ(programs_.ran(), "");
}

TEST_F(XdgWorkspaceHomeTest, OpensTheDesktopsOwnPanelForContacts) {
    programs_.install("gnome-control-center");
    programs_.install("gnome-contacts");
    qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(programs_.ran(), "gnome-control-center applications\n");
}

TEST_F(XdgWorkspaceHomeTest, OpensTheAddressBookWhenThePanelFails) {
    programs_.install("gnome-control-center", 1);
    programs_.install("evolution");
    qputenv("XDG_CURRENT_DESKTOP", "GNOME");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(
        programs_.ran(), "gnome-control-center applications\nevolution --component=contacts\n");
}

TEST_F(XdgWorkspaceHomeTest, DoesNotOpenPanelsOfOtherDesktops) {
    programs_.install("gnome-control-center");
    programs_.install("systemsettings");
    programs_.install("kaddressbook");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(failure(), "");
    EXPECT_EQ(programs_.ran(), "kaddressbook \n");
}

TEST_F(XdgWorkspaceHomeTest, ReportsADesktopWithoutContactsPrograms) {
    programs_.install("xdg-open");
    workspace_->openSettings(Workspace::SettingsPane::Contacts, completion());
    EXPECT_EQ(ends_, 0);
    EXPECT_EQ(
        failure(),
        "Could not open the settings of contacts: this desktop has neither a panel for them nor an "
        "address book");
}

} // namespace orvel::test
