// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealWorkspace.h"

#include "platform/linux/desktop/XdgWorkspace.h"
#include "tests/platform/linux/signin/BrowserScript.h"
#include "tests/support/fakes/ManualClock.h"

namespace orvel::test {

namespace {

class XdgSubject final : public WorkspaceSubject {
public:
    Workspace& workspace() override { return *workspace_; }
    void destroyWorkspace() override { workspace_.reset(); }
    void removeBrowser() override { browser_.fail(); }

private:
    BrowserScript browser_;
    ManualClock clock_;
    std::unique_ptr<Workspace> workspace_ = std::make_unique<XdgWorkspace>(clock_);
};

} // namespace

std::unique_ptr<WorkspaceSubject> makeRealWorkspace() {
    return std::make_unique<XdgSubject>();
}

} // namespace orvel::test
