// SPDX-License-Identifier: Apache-2.0
#include "platform/CoreDumps.h"

#include <sys/resource.h>

namespace orvel {

void forbidCoreDumps() {
    // Also affects the programs that this process starts. Lowering a limit cannot fail. The
    // hardened runtime keeps the user's other processes from reading this one's memory.
    constexpr rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
}

} // namespace orvel
