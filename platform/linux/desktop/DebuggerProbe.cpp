// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/DebuggerProbe.h"

#include "core/Errors.h"
#include "platform/linux/support/ReadFile.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel {

bool isDebuggerAttached() {
    // "TracerPid:", a tab, and 0 when there is none.
    constexpr std::string_view key = "\nTracerPid:\t";
    constexpr std::size_t maximumBytes = std::size_t{64} << 10U;
    try {
        const std::string status = readFile("/proc/self/status", maximumBytes);
        const std::size_t found = status.find(key);
        return found != std::string::npos && status.at(found + key.size()) != '0';
    } catch (const tavrin::PlatformError&) {
        // Without an answer of the kernel there is none.
        return false;
    }
}

} // namespace orvel
