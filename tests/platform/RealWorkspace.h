// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Workspace.h"

#include <memory>
#include <string>

namespace orvel::test {

constexpr auto testIdentifier = "app.test.Workspace";

/// A workspace, and the desktop around it.
class WorkspaceSubject {
public:
    WorkspaceSubject() = default;
    WorkspaceSubject(const WorkspaceSubject&) = delete;
    WorkspaceSubject& operator=(const WorkspaceSubject&) = delete;
    virtual ~WorkspaceSubject() = default;

    [[nodiscard]] virtual Workspace& workspace() = 0;
    virtual void destroyWorkspace() = 0;
    virtual void removeBrowser() = 0;
    /// Another copy runs from now on; under the identifier that it gives.
    [[nodiscard]] virtual std::string startFirstCopy() = 0;
    /// Another copy was started now.
    virtual void startSecondCopy() = 0;
    /// Whether that other copy was brought to the front.
    [[nodiscard]] virtual bool isOtherActivated() = 0;
    virtual void setReducesMotion(bool reduces) = 0;
};

/// This system's.
[[nodiscard]] std::unique_ptr<WorkspaceSubject> makeRealWorkspace();

} // namespace orvel::test
