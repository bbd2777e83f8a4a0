// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

namespace orvel {

/// Ends and restarts this process, and says whether it is being debugged. Main thread.
class ProcessControl : public tavrin::Interface {
public:
    /// Starts this program anew once it has ended, in a second or later. A failure is ignored.
    virtual void scheduleRelaunch() = 0;

    /// Ends the application as the user would, by way of its event loop.
    virtual void terminate() = 0;

    /// Whether another process traces this one just now. No protection of any kind: a debugger may
    /// come later.
    [[nodiscard]] virtual bool isDebuggerAttached() const = 0;
};

} // namespace orvel
