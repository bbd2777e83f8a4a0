// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "platform/ProcessControl.h"

#include <filesystem>

namespace orvel {

/// Relaunches through the shell, ends Qt's event loop, and asks the kernel about debuggers.
class LinuxProcessControl final : public ProcessControl {
public:
    /// A relaunch starts `ownProgram` after the pause. If this process is still running then, it
    /// waits up to sixty more pauses.
    explicit LinuxProcessControl(
        std::filesystem::path ownProgram, tavrin::Seconds relaunchPause = tavrin::Seconds(1));

    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;

private:
    const std::filesystem::path ownProgram_;
    const tavrin::Seconds relaunchPause_;
};

} // namespace orvel
