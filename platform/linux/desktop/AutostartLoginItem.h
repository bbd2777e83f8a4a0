// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"
#include "platform/linux/support/WorkQueue.h"

#include <filesystem>
#include <string>

namespace orvel {

/// A desktop entry in the user's autostart folder.
///
/// Written atomically. The desktop's settings may switch it off; registering it again switches it
/// on.
class AutostartLoginItem final : public LoginItem {
public:
    struct Options {
        /// "autostart" in the user's configuration folder.
        std::filesystem::path folder;
        /// The name of the entry's file and of its icon.
        std::string identifier;
        std::string displayName;
        /// The program to start.
        std::filesystem::path program;
    };

    [[nodiscard]] static std::filesystem::path defaultFolder();

    explicit AutostartLoginItem(Options options);

    void registerItem(Completion completion) override;
    void unregisterItem(Completion completion) override;
    /// Compares the entry's key "TryExec", so that a changed command line stays. Replaces an entry
    /// that other users may have written.
    void repairItem(Completion completion) override;
    void status(StatusCompletion completion) override;

private:
    const Options options_;
    const std::filesystem::path file_;
    WorkQueue disk_;
};

} // namespace orvel
