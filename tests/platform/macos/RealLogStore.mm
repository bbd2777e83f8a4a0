// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealLogStore.h"

#include "platform/macos/log/UnifiedLogStore.h"

namespace orvel::test {

std::unique_ptr<LogStore> makeRealLogStore(const std::string& subsystem) {
    return std::make_unique<UnifiedLogStore>(UnifiedLogStore::Options{subsystem, std::nullopt});
}

} // namespace orvel::test
