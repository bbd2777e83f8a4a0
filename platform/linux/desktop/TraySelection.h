// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

namespace orvel {

/// Tracks whether the X display has a system tray, if this program uses X.
///
/// Uses its own connection, so that it does not depend on the UI. Main thread.
class TraySelection final {
public:
    /// Calls back from the event loop when `isOwned` may have changed.
    explicit TraySelection(std::function<void()> changed);
    ~TraySelection();
    TraySelection(const TraySelection&) = delete;
    TraySelection& operator=(const TraySelection&) = delete;

    [[nodiscard]] bool isOwned() const { return isOwned_; }

private:
    struct Display;

    bool takeEvents();
    void processEvents();
    void askForOwner();

    std::function<void()> changed_;
    bool isOwned_ = false;
    std::unique_ptr<Display> display_;
};

} // namespace orvel
