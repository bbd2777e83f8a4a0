// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace orvel::test {

/// Removes root's right to examine any process from this thread, so that it is like that of an
/// ordinary user. A process also needs the rights of the one that it examines.
inline void dropPtraceRight() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
    syscall(SYS_capget, &header, rights.data());
    constexpr unsigned others = ~(1U << static_cast<unsigned>(CAP_SYS_PTRACE));
    rights[0].effective &= others;
    rights[0].permitted &= others;
    syscall(SYS_capset, &header, rights.data());
}

} // namespace orvel::test
