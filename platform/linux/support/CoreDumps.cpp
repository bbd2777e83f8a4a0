// SPDX-License-Identifier: Apache-2.0
#include "platform/CoreDumps.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace orvel {

void forbidCoreDumps() {
    // A limit of 1 byte, because at 0 the kernel still passes a dump to a program that receives all
    // dumps. Not with PR_SET_DUMPABLE: the desktop portal refuses a process whose "/proc/PID/root"
    // it cannot open. So the user's other processes may read this one's memory with ptrace, unless
    // Yama's "ptrace_scope" forbids it. They could ask the keyring for the session as well.
    rlimit limit{};
    getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = 1;
    if (limit.rlim_max < limit.rlim_cur || setrlimit(RLIMIT_CORE, &limit) != 0) {
        // The session's limit is 0, which only root may raise. The agent then cannot read the
        // desktop's settings.
        prctl(PR_SET_DUMPABLE, 0);
    }
}

} // namespace orvel
