// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/LinuxProcessControl.h"

#include "core/Errors.h"
#include "platform/linux/support/DesktopProgram.h"
#include "platform/linux/support/ReadFile.h"

#include <QCoreApplication>

#include <fmt/format.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// Waits for that long, and on for the process of that number, should that take longer to end; but
/// not for ever.
constexpr auto relaunchScript =
    R"(i=0; while sleep "$2"; [ $i -lt 60 ] && kill -0 "$1" 2>/dev/null; do i=$((i + 1)); done; exec "$0")";

} // namespace

LinuxProcessControl::LinuxProcessControl(
    std::filesystem::path ownProgram, tavrin::Seconds relaunchPause)
    : ownProgram_(std::move(ownProgram)), relaunchPause_(relaunchPause) {}

void LinuxProcessControl::scheduleRelaunch() {
    // Ignored when it fails, as the port has it.
    static_cast<void>(startSuccessor(
        {"/bin/sh",
         "-c",
         relaunchScript,
         ownProgram_.string(),
         std::to_string(getpid()),
         fmt::format("{}", relaunchPause_.count())}));
}

void LinuxProcessControl::terminate() {
    QCoreApplication::quit();
}

bool LinuxProcessControl::isDebuggerAttached() const {
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
