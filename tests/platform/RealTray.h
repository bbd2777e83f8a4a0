// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Tray.h"

#include <memory>

namespace orvel::test {

/// This system's.
[[nodiscard]] std::unique_ptr<Tray> makeRealTray();

} // namespace orvel::test
