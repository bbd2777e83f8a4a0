// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitProcessControl.h"

#include "platform/macos/desktop/RelaunchScript.h"
#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>

namespace orvel {

void AppKitProcessControl::scheduleRelaunch() {
    NSTask* const shell = [[NSTask alloc] init];
    shell.executableURL = fileURL("/bin/sh");
    shell.arguments = @[
        @"-c",
        nsString(relaunchScript),
        NSBundle.mainBundle.bundlePath,
        nsString(std::to_string(getpid())),
        @"/usr/bin/open"
    ];
    // The port ignores failures.
    [shell launchAndReturnError:nil];
}

void AppKitProcessControl::terminate() {
    [NSApplication.sharedApplication terminate:nil];
}

bool AppKitProcessControl::isDebuggerAttached() const {
    std::array<int, 4> name{CTL_KERN, KERN_PROC, KERN_PROC_PID, getpid()};
    kinfo_proc process{};
    std::size_t size = sizeof process;
    return sysctl(name.data(), name.size(), &process, &size, nullptr, 0) == 0 &&
           (process.kp_proc.p_flag & P_TRACED) != 0;
}

} // namespace orvel
