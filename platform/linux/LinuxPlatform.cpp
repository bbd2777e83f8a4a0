// SPDX-License-Identifier: Apache-2.0
#include "platform/CoreDumps.h"
#include "platform/Platform.h"
#include "platform/linux/contacts/EvolutionAddressBook.h"
#include "platform/linux/desktop/AutostartLoginItem.h"
#include "platform/linux/desktop/LinuxProcessControl.h"
#include "platform/linux/desktop/PortalMotionPreference.h"
#include "platform/linux/desktop/SessionInstanceRegistry.h"
#include "platform/linux/desktop/StatusNotifierTray.h"
#include "platform/linux/desktop/XdgApplicationFocus.h"
#include "platform/linux/desktop/XdgWorkspace.h"
#include "platform/linux/keychain/SecretServiceKeychain.h"
#include "platform/linux/log/JournalSocket.h"
#include "platform/linux/log/SpdlogLogStore.h"
#include "platform/linux/network/CurlURLSession.h"
#include "platform/linux/network/LibraryVariables.h"
#include "platform/linux/signin/BrowserAuthenticationSession.h"
#include "platform/linux/signin/SchemeRegistration.h"
#include "platform/linux/storage/KernelFileCopier.h"
#include "platform/linux/storage/PlistBundle.h"
#include "platform/linux/storage/SettingsUserDefaults.h"
#include "platform/linux/support/OwnProgram.h"
#include "platform/linux/support/SessionBus.h"
#include "platform/linux/support/SteadyClock.h"
#include "platform/linux/update/AppcastUpdater.h"

#include <QStandardPaths>
#include <QString>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

std::filesystem::path downloadsFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::DownloadLocation).toStdString();
}

} // namespace

std::unique_ptr<tavrin::UserDefaults> makeUserDefaults(const std::filesystem::path& file) {
    return std::make_unique<SettingsUserDefaults>(file);
}

void cleanEnvironment() {
    for (const char* variable : library_variables::removed) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
        unsetenv(variable);
    }
}

std::optional<int> passOnCallback(int argc, char** argv) {
    if (argc != 2 || !std::string_view(argv[1]).starts_with("orvelagent:")) {
        return std::nullopt;
    }
    std::string program = SchemeRegistration::callbackProgram().string();
    execl(program.c_str(), program.c_str(), argv[1], nullptr);
    std::perror(program.c_str());
    return 1;
}

void prepareEventLoop() {
    // All of Qt's event loops can run the ports' callbacks.
}

Platform makePlatform(PlatformOptions options) {
    if (options.forbidsCoreDumps) {
        forbidCoreDumps();
    }
    Platform platform;
    const std::filesystem::path bundleFolder = PlistBundle::defaultFolder();
    platform.bundle = std::make_unique<PlistBundle>(bundleFolder);
    platform.logStore = std::make_unique<SpdlogLogStore>(SpdlogLogStore::Options{
        platform.bundle->identifier(), options.standardErrorLevel, JournalSocket::systemPath()});
    platform.clock = std::make_unique<SteadyClock>();
    platform.userDefaults = makeUserDefaults(SettingsUserDefaults::defaultFile());
    platform.fileCopier = std::make_unique<KernelFileCopier>();

    CurlURLSession::Trust trust;
    trust.extraCertificates = std::move(options.extraCertificates);
    const std::string bundledCertificate = platform.bundle->infoString("TLS_EXTRA_CA").value_or("");
    if (!bundledCertificate.empty()) {
        // A relative path is relative to the bundle.
        trust.extraCertificates.push_back(bundleFolder / bundledCertificate);
    }
    platform.urlSession = std::make_unique<CurlURLSession>(std::move(trust));

    platform.addressBook = std::make_unique<EvolutionAddressBook>(
        *platform.userDefaults, *platform.logStore, std::move(options.askForContacts));
    platform.workspace = std::make_unique<XdgWorkspace>(*platform.clock);
    auto instanceRegistry = std::make_unique<SessionInstanceRegistry>();
    const auto shareBus = [&registry = *instanceRegistry] {
        return registry.shareBus();
    };
    platform.instanceRegistry = std::move(instanceRegistry);
    platform.motionPreference = std::make_unique<PortalMotionPreference>(*platform.clock, shareBus);
    platform.tray = std::make_unique<StatusNotifierTray>(*platform.clock, shareBus);
    platform.applicationFocus = std::make_unique<XdgApplicationFocus>();
    platform.processControl =
        std::make_unique<LinuxProcessControl>(ownProgram(ProgramTraces::ofThisProcess()));
    platform.keychain =
        std::make_unique<SecretServiceKeychain>(*platform.clock, *platform.logStore);

    const auto registration = std::make_shared<SchemeRegistration>(
        SchemeRegistration::program(ProgramTraces::ofThisProcess()),
        *platform.clock,
        *platform.logStore);
    platform.webAuthenticationSession = std::make_unique<BrowserAuthenticationSession>(
        *platform.workspace,
        *platform.clock,
        *platform.logStore,
        [registration](std::function<void()> ready) { registration->ensure(std::move(ready)); });

    const std::string identifier = platform.bundle->identifier();
    platform.loginItem = std::make_unique<AutostartLoginItem>(AutostartLoginItem::Options{
        AutostartLoginItem::defaultFolder(),
        identifier,
        platform.bundle->infoString("CFBundleDisplayName").value_or(identifier),
        ownProgram(ProgramTraces::ofThisProcess())});
    platform.softwareUpdater = std::make_unique<AppcastUpdater>(
        *platform.urlSession,
        *platform.clock,
        *platform.userDefaults,
        *platform.logStore,
        AppcastUpdater::thisAgent(
            platform.bundle->infoString("CFBundleVersion").value_or(""), downloadsFolder()));
    return platform;
}

} // namespace orvel
