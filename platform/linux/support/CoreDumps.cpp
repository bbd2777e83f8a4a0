// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/CoreDumps.h"

#include <sys/prctl.h>

namespace orvel {

void forbidCoreDumps() {
    // Cannot fail with this value.
    prctl(PR_SET_DUMPABLE, 0);
}

} // namespace orvel
