// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/DebuggerProbe.h"

#include <sys/sysctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>

namespace orvel {

bool isDebuggerAttached() {
    std::array<int, 4> name{CTL_KERN, KERN_PROC, KERN_PROC_PID, getpid()};
    kinfo_proc process{};
    std::size_t size = sizeof process;
    return sysctl(name.data(), name.size(), &process, &size, nullptr, 0) == 0 &&
           (process.kp_proc.p_flag & P_TRACED) != 0;
}

} // namespace orvel
