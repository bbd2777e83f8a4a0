// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ShutdownLimit.h"
#include "OrvelAgent/base/SignalWatch.h"
#include "core/Errors.h"
#include "core/OutOfMemory.h"
#include "core/Text.h"
#include "core/messages/SnapshotDirectory.h"
#include "platform/Platform.h"
#include "tools/scan/AccountCommand.h"
#include "tools/scan/Command.h"
#include "tools/scan/ScanArguments.h"
#include "tools/scan/ScanCommand.h"

#include <QCoreApplication>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace {

constexpr int wrongUsage = 2;
constexpr int signalStatus = 128;

/// How long the end may take after a signal.
constexpr std::chrono::milliseconds quitTimeout(1980);
static_assert(
    orvel::ScanCommand::shutdownTimeout + orvel::ShutdownLimit::removalTimeout < quitTimeout,
    "The process must be ended only if a thread hangs.");

std::unique_ptr<orvel::Command>
makeCommand(orvel::ScanArguments arguments, std::shared_ptr<tavrin::LiveSnapshots> liveSnapshots) {
    if (arguments.action == orvel::ScanArguments::Action::Scan) {
        return std::make_unique<orvel::ScanCommand>(std::move(arguments), std::move(liveSnapshots));
    }
    return std::make_unique<orvel::AccountCommand>(std::move(arguments));
}

/// Call it in a handler of an exception.
void printFailure() {
    const std::string text = tavrin::description(std::current_exception());
    std::fprintf(stderr, "orvel-scan: %s\n", tavrin::onOneLine(text).c_str());
}

QCoro::Task<> runAndQuit(orvel::Command* command) {
    int status = orvel::Command::failed;
    try {
        status = co_await command->run();
    } catch (const tavrin::TaskCancelled&) {
        // Cancelled by a signal, which determines the exit status.
    } catch (const std::exception&) {
        printFailure();
    }
    QCoreApplication::exit(status);
}

/// Starts the command inside the event loop, because `exit` has no effect before `exec`.
int execute(orvel::ScanArguments arguments) {
    const auto snapshots = std::make_shared<tavrin::LiveSnapshots>();
    // Before all that may take long to destroy.
    orvel::ShutdownLimit shutdownLimit([snapshots] { snapshots->removeDirectories(); });
    const std::unique_ptr<orvel::Command> command = makeCommand(std::move(arguments), snapshots);
    orvel::SignalWatch signalWatch([&] {
        shutdownLimit.start(quitTimeout, signalStatus + signalWatch.received().value());
        command->cancel();
    });
    QCoro::Task<> running;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [&] { running = runAndQuit(command.get()); },
        Qt::QueuedConnection);
    const int status = QCoreApplication::exec();
    if (const auto number = signalWatch.received()) {
        return signalStatus + *number;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    tavrin::OutOfMemory::throwFromNew();
    // When the reader of a pipe closes it, let the write fail instead of ending without cleanup.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        orvel::cleanEnvironment();
        orvel::prepareEventLoop();
        const QCoreApplication application(argc, argv);
        auto parsed = orvel::parseScanArguments(argc, argv);
        if (const auto* answer = std::get_if<std::string>(&parsed)) {
            std::fputs(answer->c_str(), stdout);
            return orvel::Command::succeeded;
        }
        return execute(std::get<orvel::ScanArguments>(std::move(parsed)));
    } catch (const orvel::UsageError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return wrongUsage;
    } catch (const std::exception&) {
        printFailure();
        return orvel::Command::failed;
    }
}
