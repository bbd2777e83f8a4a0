// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Subscription.h"

#include <functional>
#include <memory>
#include <string>

namespace orvel {

/// The part of the desktop that shows running programs' icons. Main thread.
class Tray : public tavrin::Interface {
public:
    /// Whether the desktop has a tray; false until that is known. The first call of this or of
    /// `onChange` starts the detection.
    [[nodiscard]] virtual bool isAvailable() = 0;

    /// Calls back after every change of `isAvailable`.
    [[nodiscard]] virtual std::unique_ptr<Subscription> onChange(std::function<void()> changed) = 0;

    /// Whether the tray is part of a menu bar. A menu bar colours the icons itself, and every click
    /// on an icon with a menu opens the menu.
    [[nodiscard]] virtual bool isMenuBar() const = 0;

    /// Sets the icon's title for screen readers, on systems where the UI toolkit does not set it.
    virtual void setTitle(const std::string& title) = 0;
};

} // namespace orvel
