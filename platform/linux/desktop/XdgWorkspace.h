// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/Workspace.h"
#include "platform/linux/support/CallbackContext.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvel {

/// Opens things with xdg-open and the desktop's file manager (org.freedesktop.FileManager1).
/// Without a file manager, opens folders with xdg-open.
///
/// Some programs exit at once, others when the user closes them, so a program that is still running
/// after five seconds counts as a success. Programs outlive this object. Borrows the clock.
class XdgWorkspace final : public Workspace {
public:
    explicit XdgWorkspace(Clock& clock);

    void openURL(std::string url, Completion completion) override;
    /// Full Disk Access: the properties of the folder with the Messages database. Contacts: the
    /// desktop's privacy settings, or else its address book.
    void openSettings(SettingsPane pane, Completion completion) override;
    /// Shows the file, selected in its folder; for a missing file, the nearest existing folder.
    void revealFile(std::string path, Completion completion) override;

private:
    using CommandLine = std::vector<std::string>;
    struct FileManagerRequest;

    struct Launch {
        Completion completion;
        std::unique_ptr<Clock::Timer> timer;
    };

    /// Starts a program found on the PATH.
    void launch(CommandLine commandLine, Completion completion);
    void finishLaunch(std::uint64_t launch, const std::optional<tavrin::PlatformError>& error = {});
    void launchFirst(std::vector<CommandLine> candidates, Completion completion);

    void askFileManager(std::shared_ptr<FileManagerRequest> request);
    void callFileManager(std::shared_ptr<FileManagerRequest> request);

    Clock& clock_;
    std::map<std::uint64_t, Launch> launches_;
    std::uint64_t lastLaunch_ = 0;
    /// Destroyed first: drops pending callbacks.
    CallbackContext callbackContext_;
};

} // namespace orvel
