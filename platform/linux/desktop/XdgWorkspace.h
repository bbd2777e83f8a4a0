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
/// after five seconds counts as a success. Programs outlive this object. Paths are examined on
/// another thread, because a disk may not answer; after five seconds that is a failure. Borrows the
/// clock.
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

    struct Pending {
        Completion completion;
        std::unique_ptr<Clock::Timer> timer;
    };

    /// Keeps the completion, with this error after the timeout. Returns its number.
    std::uint64_t
    await(Completion completion, const std::optional<tavrin::PlatformError>& timeoutError);
    void finish(std::uint64_t pending, const std::optional<tavrin::PlatformError>& error = {});

    /// Runs `examine()` on another thread, then `next` with its result and the completion, unless
    /// the time is up before.
    template <typename Examine, typename Next>
    void afterDisk(Examine examine, Completion completion, Next next);

    /// Starts a program found on the PATH.
    void launch(CommandLine commandLine, Completion completion);
    void launchFirst(std::vector<CommandLine> candidates, Completion completion);

    void askFileManager(std::shared_ptr<FileManagerRequest> request);
    void callFileManager(std::shared_ptr<FileManagerRequest> request);

    Clock& clock_;
    std::map<std::uint64_t, Pending> pending_;
    std::uint64_t lastPending_ = 0;
    /// Destroyed first: drops pending callbacks.
    CallbackContext callbackContext_;
};

} // namespace orvel
