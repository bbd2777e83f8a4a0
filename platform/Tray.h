// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"
#include "platform/Subscription.h"

#include <functional>
#include <memory>
#include <string>

namespace orvel {

/// The part of the desktop that shows the icons of running programs. Main thread.
class Tray : public tavrin::Interface {
public:
    /// Whether the desktop has one; false until that is known. The first call of this or of
    /// `onChange` starts the search for it.
    [[nodiscard]] virtual bool isAvailable() = 0;

    /// Calls back whenever that changes.
    [[nodiscard]] virtual std::unique_ptr<Subscription> onChange(std::function<void()> changed) = 0;

    /// Whether the tray is part of a menu bar: it gives its icons their colour, and an icon that
    /// has a menu opens it at every click.
    [[nodiscard]] virtual bool isMenuBar() const = 0;

    /// What the tray tells screen readers of the icon that is in it, where the toolkit that shows
    /// the icon does not care for that.
    virtual void setTitle(const std::string& title) = 0;
};

} // namespace orvel
