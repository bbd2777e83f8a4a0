// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Tray.h"

namespace orvel {

/// The menu bar, which is always there.
class MenuBarTray final : public Tray {
public:
    [[nodiscard]] bool isAvailable() override { return true; }
    /// Never calls back.
    [[nodiscard]] std::unique_ptr<Subscription>
    onChange(std::function<void()> /*changed*/) override {
        return std::make_unique<Subscription>();
    }
    [[nodiscard]] bool isMenuBar() const override { return true; }
    /// Does nothing: the menu bar has what the toolkit gives it.
    void setTitle(const std::string& /*title*/) override {}
};

} // namespace orvel
