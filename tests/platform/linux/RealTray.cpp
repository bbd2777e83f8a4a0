// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealTray.h"

#include "platform/linux/desktop/StatusNotifierTray.h"
#include "platform/linux/support/SessionBus.h"
#include "tests/support/fakes/ManualClock.h"

namespace orvel::test {

std::unique_ptr<Tray> makeRealTray() {
    static ManualClock clock;
    return std::make_unique<StatusNotifierTray>(clock, [] { return nullptr; });
}

} // namespace orvel::test
