// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealTray.h"

#include "platform/macos/desktop/MenuBarTray.h"

namespace orvel::test {

std::unique_ptr<Tray> makeRealTray() {
    return std::make_unique<MenuBarTray>();
}

} // namespace orvel::test
