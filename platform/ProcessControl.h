// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

namespace orvel {

/// Ends and restarts this process, and detects debuggers. Main thread.
class ProcessControl : public tavrin::Interface {
public:
    /// Restarts this program after this process has ended, at least one second from now. Failures
    /// are ignored.
    virtual void scheduleRelaunch() = 0;

    /// Quits the application through its event loop, as if the user had quit it.
    virtual void terminate() = 0;

    /// Whether another process traces this one now. A debugger may still attach later.
    [[nodiscard]] virtual bool isDebuggerAttached() const = 0;
};

} // namespace orvel
