// SPDX-License-Identifier: Apache-2.0
//
// What every workspace does: the fake of the other tests and this system's.
#include "platform/Workspace.h"

#include "tests/platform/RealWorkspace.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeWorkspace.h"

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

class FakeSubject final : public test::WorkspaceSubject {
public:
    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override {
        workspace_->openError =
            tavrin::PlatformError("test", 1, "Could not open the browser: there is none");
    }
    std::string startFirstCopy() override {
        workspace_->otherCopy = {getpid() + 1};
        return test::testIdentifier;
    }
    void startSecondCopy() override { workspace_->beActivated(); }
    bool isOtherActivated() override { return !workspace_->activatedCopies.empty(); }
    void setReducesMotion(bool reduces) override { workspace_->setReducesMotion(reduces); }

private:
    std::unique_ptr<test::FakeWorkspace> workspace_ = std::make_unique<test::FakeWorkspace>();
};

struct Kind {
    const char* name;
    std::unique_ptr<test::WorkspaceSubject> (*make)();
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

    std::unique_ptr<test::WorkspaceSubject> subject_ = GetParam().make();
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
    EXPECT_FALSE(workspace().runningCopy(test::testIdentifier));
    EXPECT_FALSE(workspace().runningCopy(test::testIdentifier)) << "took itself for another copy";
}

TEST_P(WorkspaceTest, ALaterCopyFindsTheFirst) {
    const auto other = workspace().runningCopy(subject_->startFirstCopy());
    ASSERT_TRUE(other);
    EXPECT_NE(other->processIdentifier, getpid());
    workspace().activateCopy(*other);
    EXPECT_TRUE(waitUntil([this] { return subject_->isOtherActivated(); }));
}

TEST_P(WorkspaceTest, TellsWhenAnotherCopyWasStarted) {
    ASSERT_FALSE(workspace().runningCopy(test::testIdentifier));
    int activations = 0;
    const auto subscription = workspace().onActivation([&] { ++activations; });
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 1; }));
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 2; }));
}

TEST_P(WorkspaceTest, AnEndedSubscriptionIsNotCalled) {
    ASSERT_FALSE(workspace().runningCopy(test::testIdentifier));
    bool isCalled = false;
    auto ended = workspace().onActivation([&] { isCalled = true; });
    int activations = 0;
    const auto subscription = workspace().onActivation([&] { ++activations; });
    ended.reset();
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 1; }));
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
            []() -> std::unique_ptr<test::WorkspaceSubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{"Real", test::makeRealWorkspace}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
