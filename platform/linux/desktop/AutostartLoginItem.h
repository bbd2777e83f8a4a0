// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"

#include <filesystem>
#include <memory>
#include <string>

class QObject;
class QThreadPool;

namespace orvel {

/// An entry in the user's autostart folder, as the desktops read it.
///
/// It is there whole or not at all. A desktop's own settings may have switched it off; registering
/// it again switches it on.
class AutostartLoginItem final : public LoginItem {
public:
    struct Options {
        /// "autostart" in the user's configuration folder.
        std::filesystem::path folder;
        /// Names the entry and its icon.
        std::string identifier;
        std::string displayName;
        /// What the desktop starts.
        std::filesystem::path program;
    };

    [[nodiscard]] static std::filesystem::path defaultFolder();

    explicit AutostartLoginItem(Options options);
    ~AutostartLoginItem() override;

    void registerItem(Completion completion) override;
    void unregisterItem(Completion completion) override;
    void status(StatusCompletion completion) override;

private:
    const Options options_;
    const std::filesystem::path file_;
    /// Results come to it; with it they are dropped.
    std::unique_ptr<QObject> callbackContext_;
    /// One thread, because the disk may take longer than a frame. Ends first, with all its work.
    std::unique_ptr<QThreadPool> disk_;
};

} // namespace orvel
