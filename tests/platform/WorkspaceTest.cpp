// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every workspace: the fake and this system's.
#include "platform/Workspace.h"

#include "tests/platform/RealWorkspace.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeWorkspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

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

    /// The results of one `openURL` call.
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

TEST_P(WorkspaceTest, ReportsOnceThatThePageIsOpen) {
    const Opening opening = open();
    EXPECT_EQ(opening.ends, 1);
    EXPECT_EQ(opening.failure, "");
}

TEST_P(WorkspaceTest, ReportsWhyThePageIsNotOpen) {
    subject_->removeBrowser();
    EXPECT_THAT(open().failure, StartsWith("Could not open the browser: "));
}

TEST_P(WorkspaceTest, DoesNotCallBackAfterItsDestruction) {
    bool isTold = false;
    workspace().openURL("https://www.example.com/", [&](const auto&) { isTold = true; });
    subject_->destroyWorkspace();
    test::processEvents();
    EXPECT_FALSE(isTold);
}

INSTANTIATE_TEST_SUITE_P(
    Implementations,
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
