// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"
#include "platform/ProcessControl.h"

#include <filesystem>

namespace orvel {

/// Relaunches through the shell, ends Qt's event loop, and asks the kernel about debuggers.
class LinuxProcessControl final : public ProcessControl {
public:
    /// The program is what a relaunch starts: after that pause at the earliest, and when this
    /// process still runs then, after up to sixty more of them.
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
