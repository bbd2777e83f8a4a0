// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/XdgWorkspace.h"

#include "tests/platform/BrowserScript.h"
#include "tests/support/ManualClock.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace orvel::test {

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class XdgWorkspaceTest : public testing::Test {
protected:
    void open(const std::string& url) {
        workspace_->openURL(url, [this](const std::optional<tavrin::PlatformError>& error) {
            ++ends_;
            failure_ = error ? error->what() : "";
        });
        EXPECT_EQ(ends_, 0) << "answered before the call returned";
    }

    /// Why the page cannot be opened; empty when it can.
    std::string failureOf(const std::string& url) {
        open(url);
        EXPECT_TRUE(waitUntil([this] { return ends_ > 0; }));
        return failure_;
    }

    BrowserScript browser_;
    ManualClock clock_;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_);
    int ends_ = 0;
    std::string failure_;
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

} // namespace orvel::test
