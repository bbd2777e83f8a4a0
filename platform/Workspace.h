// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/Interface.h"

#include <functional>
#include <optional>
#include <string>

namespace orvel {

/// Opens pages, settings and files in other programs. Main thread.
class Workspace : public tavrin::Interface {
public:
    /// The failure; nothing on success.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;

    /// The settings in which the user grants a permission.
    enum class SettingsPane { FullDiskAccess, Contacts };

    /// Opens an https URL in the default browser; on Linux also an http URL of 127.0.0.1, for the
    /// sign-in. Calls back exactly once, never before this returns; not at all when the workspace
    /// is destroyed first. On Linux every account of this machine can see the URL.
    virtual void openURL(std::string url, Completion completion) = 0;

    /// Opens the desktop's settings for that permission. Calls back as `openURL` does.
    virtual void openSettings(SettingsPane pane, Completion completion) = 0;

    /// Shows the file in the file manager. Calls back as `openURL` does.
    virtual void revealFile(std::string path, Completion completion) = 0;
};

} // namespace orvel
