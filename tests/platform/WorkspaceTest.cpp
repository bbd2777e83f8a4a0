// SPDX-License-Identifier: Apache-2.0
//
// What every workspace does: the fake of the other tests and the desktop's.
#include "platform/Workspace.h"

#include "platform/linux/XdgWorkspace.h"
#include "tests/platform/BrowserScript.h"
#include "tests/platform/SettingsPortal.h"
#include "tests/support/FakeWorkspace.h"
#include "tests/support/ManualClock.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::waitUntil;
using testing::StartsWith;

constexpr auto identifier = "app.test.Workspace";

/// A workspace, and the desktop around it.
class Subject {
public:
    Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    virtual ~Subject() = default;

    [[nodiscard]] virtual Workspace& workspace() = 0;
    virtual void destroyWorkspace() = 0;
    virtual void removeBrowser() = 0;
    /// Another copy runs from now on.
    virtual void startFirstCopy() = 0;
    /// Another copy was started now.
    virtual void startSecondCopy() = 0;
    /// Whether that other copy was brought to the front.
    [[nodiscard]] virtual bool isOtherActivated() = 0;
    virtual void setReducesMotion(bool reduces) = 0;
};

class FakeSubject final : public Subject {
public:
    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override {
        workspace_->openError =
            tavrin::PlatformError("test", 1, "Could not open the browser: there is none");
    }
    void startFirstCopy() override { workspace_->otherCopy = {getpid() + 1}; }
    void startSecondCopy() override { workspace_->beActivated(); }
    bool isOtherActivated() override { return !workspace_->activatedCopies.empty(); }
    void setReducesMotion(bool reduces) override { workspace_->setReducesMotion(reduces); }

private:
    std::unique_ptr<test::FakeWorkspace> workspace_ = std::make_unique<test::FakeWorkspace>();
};

class DesktopSubject final : public Subject {
public:
    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override { browser_.fail(); }
    void startFirstCopy() override {
        other_.emplace(test::Program::Options{{WORKSPACE_PROBE, "claim", identifier}, {}});
        ASSERT_TRUE(waitUntil([this] { return other_->output() == "first\n"; }));
    }
    void startSecondCopy() override {
        test::Program second({{WORKSPACE_PROBE, "claim", identifier}, {}});
        EXPECT_TRUE(waitUntil([&] { return second.waitFor({}).has_value(); }));
        EXPECT_EQ(second.output(), "other " + std::to_string(getpid()) + "\n");
    }
    bool isOtherActivated() override {
        return waitUntil([this] { return other_->output() == "first\nactivated\n"; });
    }
    void setReducesMotion(bool reduces) override { portal_.setReducedMotion(reduces ? 1 : 0); }

private:
    test::BrowserScript browser_;
    test::SettingsPortal portal_;
    std::optional<test::Program> other_;
    test::ManualClock clock_;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_, "/bin/false");
};

struct Kind {
    const char* name;
    std::unique_ptr<Subject> (*make)();
};

class WorkspaceTest : public testing::TestWithParam<Kind> {
protected:
    Workspace& workspace() { return subject_->workspace(); }

    /// What an opening ends with, of all its ends.
    struct Opening {
        int ends = 0;
        std::string failure;
    };

    Opening open() {
        auto opening = std::make_shared<Opening>();
        workspace().openURL("https://www.example.com/", [opening](const auto& error) {
            ++opening->ends;
            opening->failure = error ? error->what() : "";
        });
        EXPECT_EQ(opening->ends, 0) << "answered before the call returned";
        EXPECT_TRUE(waitUntil([&] { return opening->ends > 0; }));
        test::processEvents();
        return *opening;
    }

    std::unique_ptr<Subject> subject_ = GetParam().make();
};

} // namespace

TEST_P(WorkspaceTest, TellsOnceThatThePageIsOpen) {
    const Opening opening = open();
    EXPECT_EQ(opening.ends, 1);
    EXPECT_EQ(opening.failure, "");
}

TEST_P(WorkspaceTest, TellsWhyThePageIsNotOpen) {
    subject_->removeBrowser();
    EXPECT_THAT(open().failure, StartsWith("Could not open the browser: "));
}

TEST_P(WorkspaceTest, TellsNothingAfterItsEnd) {
    bool isTold = false;
    workspace().openURL("https://www.example.com/", [&](const auto&) { isTold = true; });
    subject_->destroyWorkspace();
    test::processEvents();
    EXPECT_FALSE(isTold);
}

TEST_P(WorkspaceTest, TheFirstCopyFindsNoOther) {
    EXPECT_FALSE(workspace().runningCopy(identifier));
    EXPECT_FALSE(workspace().runningCopy(identifier)) << "took itself for another copy";
}

TEST_P(WorkspaceTest, ALaterCopyFindsTheFirst) {
    subject_->startFirstCopy();
    const auto other = workspace().runningCopy(identifier);
    ASSERT_TRUE(other);
    EXPECT_NE(other->processIdentifier, getpid());
    workspace().activateCopy(*other);
    EXPECT_TRUE(subject_->isOtherActivated());
}

TEST_P(WorkspaceTest, TellsWhenAnotherCopyWasStarted) {
    ASSERT_FALSE(workspace().runningCopy(identifier));
    int activations = 0;
    const auto subscription = workspace().onActivation([&] { ++activations; });
    subject_->startSecondCopy();
    EXPECT_EQ(activations, 1);
    subject_->startSecondCopy();
    EXPECT_EQ(activations, 2);
}

TEST_P(WorkspaceTest, AnEndedSubscriptionIsNotCalled) {
    ASSERT_FALSE(workspace().runningCopy(identifier));
    bool isCalled = false;
    auto ended = workspace().onActivation([&] { isCalled = true; });
    int activations = 0;
    const auto subscription = workspace().onActivation([&] { ++activations; });
    ended.reset();
    subject_->startSecondCopy();
    EXPECT_EQ(activations, 1);
    EXPECT_FALSE(isCalled);
}

TEST_P(WorkspaceTest, ASubscriptionMayOutliveIt) {
    auto activation = workspace().onActivation([] {});
    auto motion = workspace().onReduceMotionChange([] {});
    subject_->destroyWorkspace();
    activation.reset();
    motion.reset();
}

TEST_P(WorkspaceTest, FollowsTheWishForLessMotion) {
    EXPECT_FALSE(workspace().shouldReduceMotion());
    std::vector<bool> seen;
    const auto subscription =
        workspace().onReduceMotionChange([&] { seen.push_back(workspace().shouldReduceMotion()); });
    subject_->setReducesMotion(true);
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 1; }));
    subject_->setReducesMotion(false);
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_THAT(seen, testing::ElementsAre(true, false));
}

TEST_P(WorkspaceTest, KeepsTheActivationPolicy) {
    EXPECT_EQ(workspace().activationPolicy(), Workspace::ActivationPolicy::Accessory);
    workspace().setActivationPolicy(Workspace::ActivationPolicy::Regular);
    EXPECT_EQ(workspace().activationPolicy(), Workspace::ActivationPolicy::Regular);
}

INSTANTIATE_TEST_SUITE_P(
    Workspaces,
    WorkspaceTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<Subject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{
            "Xdg",
            []() -> std::unique_ptr<Subject> {
                return std::make_unique<DesktopSubject>();
            }}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
