// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Tray.h"

namespace orvel {

/// The menu bar, which is always available.
class MenuBarTray final : public Tray {
public:
    [[nodiscard]] bool isAvailable() override { return true; }
    /// Never calls back.
    [[nodiscard]] std::unique_ptr<Subscription>
    onChange(std::function<void()> /*changed*/) override {
        return std::make_unique<Subscription>();
    }
    [[nodiscard]] bool isMenuBar() const override { return true; }
    /// Does nothing: the toolkit sets the title in the menu bar.
    void setTitle(const std::string& /*title*/) override {}
};

} // namespace orvel
