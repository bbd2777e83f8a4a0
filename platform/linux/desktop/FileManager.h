// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/linux/desktop/ProgramLauncher.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class QObject;

namespace orvel {

/// The desktop's file manager (org.freedesktop.FileManager1). Without one, opens folders with
/// xdg-open. Main thread; borrows the clock and the launcher.
class FileManager final {
public:
    using Completion = ProgramLauncher::Completion;

    FileManager(Clock& clock, ProgramLauncher& launcher);
    ~FileManager();
    FileManager(const FileManager&) = delete;
    FileManager& operator=(const FileManager&) = delete;

    /// Shows the file, selected in its folder; for a missing file, the nearest existing folder.
    /// Calls back exactly once, never before this returns; not at all when this object is destroyed
    /// first. The callback may destroy it.
    void reveal(const std::filesystem::path& file, Completion completion);

    /// Shows the folder's properties, including its permissions. Calls back as `reveal` does.
    void showProperties(const std::filesystem::path& folder, Completion completion);

private:
    struct Request;

    void show(std::shared_ptr<Request> request);
    void callNext(std::shared_ptr<Request> request);

    Clock& clock_;
    ProgramLauncher& launcher_;
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
