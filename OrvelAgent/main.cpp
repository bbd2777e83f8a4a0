// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Configuration.h"
#include "OrvelAgent/ContactsQuestion.h"
#include "OrvelAgent/SignalWatch.h"
#include "OrvelAgent/SingleInstance.h"
#include "OrvelAgent/TavrinMacApp.h"
#include "OrvelAgent/UpdateUserDriver.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QCoroTask>
#include <QMessageBox>
#include <QSessionManager>

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace orvel;

constexpr auto usage = R"(Usage: orvel-agent [--help] [--version]

Collects the user's Messages history in the background, from an icon in the tray.

  --help     print this and exit
  --version  print the version and exit
)";
constexpr int usageStatus = 2;

/// Needs no display.
bool hasAnswered(int argc, char** argv) {
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument == "--help" || argument == "-h") {
        std::fputs(usage, stdout);
    } else if (argument == "--version") {
        std::puts("orvel-agent " ORVEL_VERSION);
    } else {
        return false;
    }
    return true;
}

PlatformOptions platformOptions(const std::string* displayName) {
    PlatformOptions options;
    if (isatty(STDERR_FILENO) != 0) {
        options.standardErrorLevel = LogLevel::Info;
    }
    options.askForContacts = [displayName](std::function<void(bool)> answer) {
        (new ContactsQuestion(QString::fromStdString(*displayName), std::move(answer)))->ask();
    };
    return options;
}

QCoro::Task<> stopAndQuit(TavrinMacApp* app) {
    co_await app->stop();
    QCoreApplication::exit();
}

int run(const QApplication& application) {
    std::string displayName;
    Platform platform = makePlatform(platformOptions(&displayName));
    displayName = Configuration(*platform.bundle).displayName();
    SingleInstance::terminateIfAlreadyRunning(
        *platform.bundle, *platform.workspace, *platform.logStore);

    UpdateUserDriver userDriver(*platform.softwareUpdater, *platform.workspace, *platform.bundle);
    TavrinMacApp app(platform, userDriver);
    // Not by closing every window, of which one could object.
    const SignalWatch signalWatch([] { QCoreApplication::exit(); });
    QObject::connect(
        &application,
        &QGuiApplication::saveStateRequest,
        &app,
        [](QSessionManager& session) {
            // The session starts the agent by its autostart entry, if the user wants that.
            session.setRestartHint(QSessionManager::RestartNever);
        },
        Qt::DirectConnection);
    QApplication::exec();

    // Whoever asked for the end, it is the same from here on; the next signal is obeyed at once.
    QCoro::Task<> stopping;
    QMetaObject::invokeMethod(
        &app, [&] { stopping = stopAndQuit(&app); }, Qt::QueuedConnection);
    QApplication::exec();
    return 0;
}

int showFailure(const std::exception& error) {
    std::fprintf(stderr, "orvel-agent: %s\n", error.what());
    QMessageBox window(
        QMessageBox::Critical,
        QCoreApplication::translate("main", "The agent cannot start"),
        QString::fromUtf8(error.what()));
    window.setTextFormat(Qt::PlainText);
    QObject::connect(&window, &QDialog::finished, [] { QCoreApplication::exit(); });
    window.show();
    QApplication::exec();
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    // A reader that goes away is a failed write, not the end of this process and its cleaning up.
    std::signal(SIGPIPE, SIG_IGN);
    if (hasAnswered(argc, argv)) {
        return 0;
    }
    const QApplication application(argc, argv);
    if (QCoreApplication::arguments().size() > 1) {
        std::fputs(usage, stderr);
        return usageStatus;
    }
    QGuiApplication::setDesktopFileName(QStringLiteral("app.orvel.OrvelAgent"));
    QGuiApplication::setQuitOnLastWindowClosed(false);
    try {
        return run(application);
    } catch (const std::exception& error) {
        return showFailure(error);
    }
}
