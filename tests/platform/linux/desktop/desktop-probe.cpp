// SPDX-License-Identifier: Apache-2.0
//
// usage: desktop-probe claim IDENTIFIER
//        desktop-probe relaunch PROGRAM SECONDS
//        desktop-probe linger PROGRAM
//        desktop-probe motion [no-core-dumps | not-dumpable]
//
// Uses the desktop ports in a separate process. "claim" prints "first", runs until terminated and
// prints "activated" at each activation; or prints "other PID", activates that copy and exits.
// "relaunch" schedules a relaunch of the program after that pause and exits; "linger" schedules one
// and keeps running. "motion" prints whether motion is reduced, initially and after each change; in
// a process that forbids core dumps, or that other processes cannot examine.
#include "platform/CoreDumps.h"
#include "platform/linux/desktop/LinuxProcessControl.h"
#include "platform/linux/desktop/PortalMotionPreference.h"
#include "platform/linux/desktop/SessionInstanceRegistry.h"
#include "platform/linux/support/SessionBus.h"
#include "tests/platform/linux/desktop/PtraceRight.h"
#include "tests/support/fakes/ManualClock.h"

#include <QCoreApplication>

#include <sys/prctl.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    using namespace orvel;
    const QCoreApplication application(argc, argv);
    const std::string command = argv[1];
    const std::string argument = argc > 2 ? argv[2] : "";
    if (command == "relaunch") {
        LinuxProcessControl(argument, tavrin::Seconds(std::stod(argv[3]))).scheduleRelaunch();
        return 0;
    }
    if (command == "linger") {
        LinuxProcessControl(argument).scheduleRelaunch();
        return QCoreApplication::exec();
    }
    if (command == "motion") {
        test::dropPtraceRight();
    }
    if (argument == "no-core-dumps") {
        forbidCoreDumps();
    } else if (argument == "not-dumpable") {
        prctl(PR_SET_DUMPABLE, 0);
    }
    if (command == "motion") {
        test::ManualClock clock;
        PortalMotionPreference preference(clock, [] { return nullptr; });
        const auto print = [&] {
            std::cout << preference.shouldReduceMotion() << std::endl;
        };
        const auto subscription = preference.onChange(print);
        print();
        return QCoreApplication::exec();
    }
    SessionInstanceRegistry registry;
    if (const auto other = registry.runningCopy(argument)) {
        std::cout << "other " << other->processIdentifier << std::endl;
        registry.activateCopy(*other);
        return 0;
    }
    const auto subscription = registry.onActivation([] { std::cout << "activated" << std::endl; });
    std::cout << "first" << std::endl;
    return QCoreApplication::exec();
}
