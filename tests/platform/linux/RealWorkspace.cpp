// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWorkspace.h"

#include "platform/linux/desktop/XdgWorkspace.h"
#include "tests/platform/linux/desktop/SettingsPortal.h"
#include "tests/platform/linux/signin/BrowserScript.h"
#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

namespace orvel::test {

namespace {

class DesktopSubject final : public WorkspaceSubject {
public:
    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override { browser_.fail(); }
    std::string startFirstCopy() override {
        other_.emplace(Program::Options{{WORKSPACE_PROBE, "claim", testIdentifier}, {}});
        EXPECT_TRUE(waitUntil([this] { return other_->output() == "first\n"; }));
        return testIdentifier;
    }
    void startSecondCopy() override {
        Program second({{WORKSPACE_PROBE, "claim", testIdentifier}, {}});
        EXPECT_TRUE(waitUntil([&] { return second.waitFor({}).has_value(); }));
        EXPECT_EQ(second.output(), "other " + std::to_string(getpid()) + "\n");
    }
    bool isOtherActivated() override { return other_->output() == "first\nactivated\n"; }
    void setReducesMotion(bool reduces) override { portal_.setReducedMotion(reduces ? 1 : 0); }

private:
    BrowserScript browser_;
    SettingsPortal portal_;
    std::optional<Program> other_;
    ManualClock clock_;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_, "/bin/false");
};

} // namespace

std::unique_ptr<WorkspaceSubject> makeRealWorkspace() {
    return std::make_unique<DesktopSubject>();
}

} // namespace orvel::test
