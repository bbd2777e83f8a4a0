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

/// The desktop's file manager (org.freedesktop.FileManager1), or whatever xdg-open makes of a
/// folder where there is none. Main thread; borrows the clock and the launcher.
class FileManager final {
public:
    using Completion = ProgramLauncher::Completion;

    FileManager(Clock& clock, ProgramLauncher& launcher);
    ~FileManager();
    FileManager(const FileManager&) = delete;
    FileManager& operator=(const FileManager&) = delete;

    /// Shows the file, selected in its folder. Of a file that is not there, the nearest folder that
    /// is. Calls back exactly once, never before this returns; not at all when this is destroyed
    /// first, which the callback may do.
    void reveal(const std::filesystem::path& file, Completion completion);

    /// Shows the properties of the folder, among them who may read it; as `reveal`.
    void showProperties(const std::filesystem::path& folder, Completion completion);

private:
    struct Showing;

    void show(std::shared_ptr<Showing> showing);
    void callNext(std::shared_ptr<Showing> showing);

    Clock& clock_;
    ProgramLauncher& launcher_;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
