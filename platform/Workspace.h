// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <functional>
#include <optional>
#include <string>

namespace orvel {

/// The user's desktop, as far as the agent deals with it. Main thread.
class Workspace {
public:
    /// Why it failed; nothing when the desktop took it over.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;

    Workspace() = default;
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
    virtual ~Workspace() = default;

    /// Opens an https URL in the default browser. Calls back exactly once, never before this
    /// returns; not at all when the workspace is destroyed first.
    virtual void openURL(std::string url, Completion completion) = 0;

    /// Whether another process traces this one just now. No protection of any kind.
    [[nodiscard]] virtual bool isDebuggerAttached() const = 0;
};

} // namespace orvel
