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

/// Arguments: program, process, pause. Sleeps for the pause, then up to sixty more pauses while the
/// process is still running, then starts the program.
constexpr auto relaunchScript =
    R"(i=0; while sleep "$2"; [ $i -lt 60 ] && kill -0 "$1" 2>/dev/null; do i=$((i + 1)); done; exec "$0")";

} // namespace

LinuxProcessControl::LinuxProcessControl(
    std::filesystem::path ownProgram, tavrin::Seconds relaunchPause)
    : ownProgram_(std::move(ownProgram)), relaunchPause_(relaunchPause) {}

void LinuxProcessControl::scheduleRelaunch() {
    // The port ignores failures.
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
    // The value is 0 without a debugger.
    constexpr std::string_view key = "\nTracerPid:\t";
    constexpr std::size_t maximumBytes = std::size_t{64} << 10U;
    try {
        const std::string status = readFile("/proc/self/status", maximumBytes);
        const std::size_t found = status.find(key);
        return found != std::string::npos && status.at(found + key.size()) != '0';
    } catch (const tavrin::PlatformError&) {
        // Unknown counts as no debugger.
        return false;
    }
}

} // namespace orvel
