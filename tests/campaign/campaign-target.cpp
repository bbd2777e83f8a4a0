// SPDX-License-Identifier: Apache-2.0
//
// The processes that campaigns kill, besides the programs of the agent:
//
//   campaign-target settings FILE NAME SEED
//       makes the changes of the seed, and prints a character after each
//   campaign-target update APPIMAGE DOWNLOADS BUNDLE CA-FILE
//       installs the update that the bundle's feed offers over the AppImage
#include "OrvelAgent/update/UpdaterService.h"
#include "platform/Platform.h"
#include "platform/linux/network/CurlURLSession.h"
#include "platform/linux/storage/PlistBundle.h"
#include "platform/linux/update/AppcastUpdater.h"
#include "tests/campaign/SettingsChanges.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/fakes/RecordingUpdatePresenter.h"

#include <QCoreApplication>

#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

int writeSettings(const std::string& file, const std::string& name, unsigned seed) {
    const auto defaults = makeUserDefaults(file);
    SettingsChanges changes(name, seed);
    for (int change = 0; change < SettingsChanges::count; ++change) {
        changes.next().applyTo(*defaults);
        if (write(STDOUT_FILENO, ".", 1) != 1) {
            return 1;
        }
    }
    return 0;
}

int installUpdate(
    const std::string& appImage,
    const std::string& downloads,
    const std::string& bundleFolder,
    const std::string& certificate) {
    CurlURLSession::Trust trust;
    trust.extraCertificates = {certificate};
    CurlURLSession session(std::move(trust));
    AppcastUpdater::Agent agent = AppcastUpdater::thisAgent("0.1.0", downloads);
    // The folder of a mounted AppImage.
    const std::filesystem::path mounted = std::filesystem::path(downloads) / "mounted";
    std::filesystem::create_directories(mounted);
    agent.installation =
        UpdateInstallation(ProgramTraces{mounted / "orvel-agent", appImage, mounted}, downloads);
    ManualClock clock;
    InMemoryUserDefaults defaults;
    RecordingLogStore log;
    RecordingUpdatePresenter presenter;
    const PlistBundle bundle(bundleFolder);
    AppcastUpdater updater(session, clock, defaults, log, agent);
    const UpdaterService service(bundle, updater, presenter);
    presenter.onOffer = [&] {
        updater.choose(SoftwareUpdater::Choice::Install);
    };
    presenter.onReadyToInstall = presenter.onOffer;
    updater.checkForUpdates();
    const auto hasEnded = [&presenter] {
        const std::string& last = presenter.shown().back();
        return last == "relaunch" || last == "no update" || last.ends_with('.');
    };
    if (!waitUntil(hasEnded, std::chrono::seconds(60)) || presenter.shown().back() != "relaunch") {
        std::cerr << presenter.shown().back() << '\n';
        return 1;
    }
    return 0;
}

int run(const std::vector<std::string>& arguments) {
    if (arguments.size() == 4 && arguments[0] == "settings") {
        return writeSettings(
            arguments[1], arguments[2], static_cast<unsigned>(std::stoul(arguments[3])));
    }
    if (arguments.size() == 5 && arguments[0] == "update") {
        return installUpdate(arguments[1], arguments[2], arguments[3], arguments[4]);
    }
    std::cerr << "campaign-target: wrong arguments\n";
    return 2;
}

} // namespace

} // namespace orvel::test

int main(int argc, char** argv) {
    orvel::prepareEventLoop();
    const QCoreApplication application(argc, argv);
    try {
        return orvel::test::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
