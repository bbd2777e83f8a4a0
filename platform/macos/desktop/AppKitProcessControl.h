// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ProcessControl.h"

namespace orvel {

/// Relaunches through the shell, ends the shared `NSApplication`, and asks the kernel about
/// debuggers.
class AppKitProcessControl final : public ProcessControl {
public:
    /// The bundle that this program is in is opened.
    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;
};

} // namespace orvel
