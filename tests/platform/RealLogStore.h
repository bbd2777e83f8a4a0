// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <memory>
#include <string>

namespace orvel::test {

/// This system's log, written to for that subsystem. Nothing goes to standard error.
[[nodiscard]] std::unique_ptr<LogStore> makeRealLogStore(const std::string& subsystem);

} // namespace orvel::test
