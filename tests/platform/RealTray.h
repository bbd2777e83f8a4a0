// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Tray.h"

#include <memory>

namespace orvel::test {

[[nodiscard]] std::unique_ptr<Tray> makeRealTray();

} // namespace orvel::test
