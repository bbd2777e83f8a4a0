// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Workspace.h"
#include "platform/linux/desktop/FileManager.h"
#include "platform/linux/desktop/ProgramLauncher.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class QObject;

namespace orvel {

/// Opens things with xdg-open and the file manager. Borrows the clock.
class XdgWorkspace final : public Workspace {
public:
    explicit XdgWorkspace(Clock& clock);
    ~XdgWorkspace() override;

    void openURL(std::string url, Completion completion) override;
    /// Full Disk Access: the properties of the folder with the Messages database. Contacts: the
    /// desktop's privacy settings, or else its address book.
    void openSettings(SettingsPane pane, Completion completion) override;
    void revealFile(std::string path, Completion completion) override;

private:
    using CommandLines = std::vector<std::vector<std::string>>;

    void later(std::function<void()> job);
    void launchFirst(CommandLines candidates, Completion completion);

    ProgramLauncher launcher_;
    FileManager fileManager_;
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
