// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

namespace orvel {

/// Who takes in other programs' icons on the X display that this program uses, if it uses one.
///
/// On a connection of its own, so that it needs nothing of the user interface. Main thread.
class TraySelection final {
public:
    /// Calls back, from the event loop, when that may have changed.
    explicit TraySelection(std::function<void()> changed);
    ~TraySelection();
    TraySelection(const TraySelection&) = delete;
    TraySelection& operator=(const TraySelection&) = delete;

    [[nodiscard]] bool isOwned() const { return isOwned_; }

private:
    struct Display;

    bool takeEvents();
    void look();
    void askForOwner();

    std::function<void()> changed_;
    bool isOwned_ = false;
    std::unique_ptr<Display> display_;
};

} // namespace orvel
