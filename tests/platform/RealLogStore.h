// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LogStore.h"

#include <memory>
#include <string>

namespace orvel::test {

/// Writes nothing to standard error.
[[nodiscard]] std::unique_ptr<LogStore> makeRealLogStore(const std::string& subsystem);

} // namespace orvel::test
