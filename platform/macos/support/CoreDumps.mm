// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/support/CoreDumps.h"

#include <sys/resource.h>

namespace orvel {

void forbidCoreDumps() {
    // Cannot fail: anybody may lower a limit. That the user's other processes cannot read this one
    // is the hardened runtime's part.
    constexpr rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
}

} // namespace orvel
