// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ProcessControl.h"

namespace orvel {

/// Relaunches through the shell, ends the shared `NSApplication`, and asks the kernel about
/// debuggers.
class AppKitProcessControl final : public ProcessControl {
public:
    /// Opens the main bundle.
    void scheduleRelaunch() override;
    void terminate() override;
    [[nodiscard]] bool isDebuggerAttached() const override;
};

} // namespace orvel
