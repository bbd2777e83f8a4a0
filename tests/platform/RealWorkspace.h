// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Workspace.h"

#include <memory>

namespace orvel::test {

/// A workspace and a simulated desktop.
class WorkspaceSubject : public tavrin::Interface {
public:
    [[nodiscard]] virtual Workspace& workspace() = 0;
    virtual void destroyWorkspace() = 0;
    virtual void removeBrowser() = 0;
};

[[nodiscard]] std::unique_ptr<WorkspaceSubject> makeRealWorkspace();

} // namespace orvel::test
