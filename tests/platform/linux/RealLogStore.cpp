// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealLogStore.h"

#include "platform/linux/log/SpdlogLogStore.h"

namespace orvel::test {

std::unique_ptr<LogStore> makeRealLogStore(const std::string& subsystem) {
    return std::make_unique<SpdlogLogStore>(
        SpdlogLogStore::Options{subsystem, std::nullopt, "/nonexistent/journal"});
}

} // namespace orvel::test
