// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SingleInstance.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/ShutdownLimit.h"
#include "OrvelAgent/base/SignalWatch.h"
#include "OrvelAgent/ui/Accessibility.h"
#include "OrvelAgent/ui/TavrinMacApp.h"
#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/panel/ContactsQuestion.h"
#include "OrvelAgent/ui/update/UpdateWindow.h"
#include "OrvelAgent/ui/update/UpdateWindowPresenter.h"
#include "core/OutOfMemory.h"
#include "core/messages/SnapshotDirectory.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QCoroTask>
#include <QEvent>
#include <QMessageBox>
#include <QPointer>
#include <QSessionManager>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
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
constexpr std::chrono::milliseconds quitTimeout(1980);
static_assert(
    AppModel::shutdownTimeout + ShutdownLimit::removalTimeout < quitTimeout,
    "The process must be ended only if a thread hangs.");

/// Handles the options that need no display.
bool handleOption(int argc, char** argv) {
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

/// The first quit request ends the event loop. Later requests do nothing, so they cannot interrupt
/// the shutdown.
class Application final : public QApplication {
public:
    using QApplication::QApplication;

    void end() {
        if (!std::exchange(isEnding_, true)) {
            exit();
        }
    }

protected:
    bool event(QEvent* event) override {
        if (event->type() == QEvent::Quit) {
            // Qt would close every window first, and a window could refuse.
            end();
            return true;
        }
        return QApplication::event(event);
    }

private:
    bool isEnding_ = false;
};

struct ContactsQuestions {
    QString displayName;
    QPointer<ContactsQuestion> current;
};

PlatformOptions platformOptions(ContactsQuestions* questions) {
    PlatformOptions options;
    if (isatty(STDERR_FILENO) != 0) {
        options.standardErrorLevel = LogLevel::Info;
    }
    options.askForContacts = [questions](std::function<void(bool)> answer) {
        if (!questions->current || questions->current->isAnswered()) {
            questions->current = new ContactsQuestion(questions->displayName, std::move(answer));
        }
        questions->current->ask();
    };
    return options;
}

QCoro::Task<> stopAndQuit(TavrinMacApp* app) {
    co_await app->stop();
    QCoreApplication::exit();
}

int run(Application& application) {
    // First, so that signals are handled until everything else has been destroyed.
    const SignalWatch signalWatch([&] { application.end(); });
    const auto snapshots = std::make_shared<tavrin::LiveSnapshots>();
    // Before all that may take long to destroy.
    ShutdownLimit shutdownLimit([snapshots] { snapshots->removeDirectories(); });
    ContactsQuestions questions;
    Platform platform = makePlatform(platformOptions(&questions));
    questions.displayName = QString::fromStdString(Configuration(*platform.bundle).displayName());
    SingleInstance::terminateIfAlreadyRunning(
        *platform.bundle, *platform.instanceRegistry, *platform.logStore);
    // Starts the query now, so that the answer has arrived when the icon is shown.
    static_cast<void>(platform.tray->isAvailable());

    const UpdateWindowPresenter::Desktop desktop{
        *platform.workspace,
        *platform.motionPreference,
        *platform.applicationFocus,
        *platform.processControl};
    UpdateWindowPresenter updatePresenter(*platform.softwareUpdater, desktop, *platform.bundle);
    CollectorService::Options options;
    options.liveSnapshots = snapshots;
    TavrinMacApp app(platform, updatePresenter, options);
    QObject::connect(
        &application,
        &QGuiApplication::saveStateRequest,
        &app,
        [](QSessionManager& session) {
            // The autostart entry restarts the agent, if the user has chosen that.
            session.setRestartHint(QSessionManager::RestartNever);
        },
        Qt::DirectConnection);
    QApplication::exec();

    shutdownLimit.start(quitTimeout);
    // From here on, further quit requests do nothing.
    application.end();
    // Destroying the open question leaves it unanswered.
    delete questions.current;
    if (updatePresenter.window() != nullptr) {
        updatePresenter.window()->hide();
    }
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
    QObject::connect(&window, &QDialog::finished, &window, [] { QCoreApplication::exit(); });
    window.show();
    QApplication::exec();
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    tavrin::OutOfMemory::throwFromNew();
    cleanEnvironment();
    // Writing to a closed pipe must fail, not kill the process before it cleans up.
    std::signal(SIGPIPE, SIG_IGN);
    if (handleOption(argc, argv)) {
        return 0;
    }
    if (const std::optional<int> status = passOnCallback(argc, argv)) {
        return *status;
    }
    prepareEventLoop();
    Application application(argc, argv);
    if (QCoreApplication::arguments().size() > 1) {
        std::fputs(usage, stderr);
        return usageStatus;
    }
    QGuiApplication::setDesktopFileName(QStringLiteral("app.orvel.OrvelAgent"));
    QGuiApplication::setWindowIcon(applicationIcon());
    QGuiApplication::setQuitOnLastWindowClosed(false);
    installAccessibility();
    try {
        return run(application);
    } catch (const std::exception& error) {
        return showFailure(error);
    }
}
