// SPDX-License-Identifier: Apache-2.0
//
// usage: workspace-probe claim IDENTIFIER
//        workspace-probe relaunch PROGRAM SECONDS
//        workspace-probe linger PROGRAM
//        workspace-probe motion
//
// Uses the desktop as a process of its own. "claim" prints "first", stays until it is ended and
// prints "activated" whenever it was; or prints "other PID", activates that copy, and ends.
// "relaunch" has the program started after that pause, and ends; "linger" does not end by itself.
// "motion" prints whether motion is to be reduced, at first and whenever that changes.
#include "platform/linux/desktop/XdgWorkspace.h"
#include "tests/support/fakes/ManualClock.h"

#include <QCoreApplication>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    using namespace orvel;
    const QCoreApplication application(argc, argv);
    const std::string command = argv[1];
    const std::string argument = argc > 2 ? argv[2] : "";
    test::ManualClock clock;
    if (command == "relaunch") {
        XdgWorkspace(clock, argument, tavrin::Seconds(std::stod(argv[3]))).scheduleRelaunch();
        return 0;
    }
    XdgWorkspace workspace(clock, argument);
    if (command == "linger") {
        workspace.scheduleRelaunch();
        return QCoreApplication::exec();
    }
    if (command == "motion") {
        const auto print = [&] {
            std::cout << workspace.shouldReduceMotion() << std::endl;
        };
        const auto subscription = workspace.onReduceMotionChange(print);
        print();
        return QCoreApplication::exec();
    }
    if (const auto other = workspace.runningCopy(argument)) {
        std::cout << "other " << other->processIdentifier << std::endl;
        workspace.activateCopy(*other);
        return 0;
    }
    const auto subscription = workspace.onActivation([] { std::cout << "activated" << std::endl; });
    std::cout << "first" << std::endl;
    return QCoreApplication::exec();
}
