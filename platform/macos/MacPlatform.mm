// SPDX-License-Identifier: Apache-2.0
#include "platform/CoreDumps.h"
#include "platform/Platform.h"
#include "platform/macos/contacts/ContactsAddressBook.h"
#include "platform/macos/desktop/AppKitApplicationFocus.h"
#include "platform/macos/desktop/AppKitInstanceRegistry.h"
#include "platform/macos/desktop/AppKitMotionPreference.h"
#include "platform/macos/desktop/AppKitProcessControl.h"
#include "platform/macos/desktop/AppKitWorkspace.h"
#include "platform/macos/desktop/AppServiceLoginItem.h"
#include "platform/macos/desktop/MenuBarTray.h"
#include "platform/macos/keychain/SecurityKeychain.h"
#include "platform/macos/log/UnifiedLogStore.h"
#include "platform/macos/network/FoundationURLSession.h"
#include "platform/macos/signin/SystemAuthenticationSession.h"
#include "platform/macos/storage/CloningFileCopier.h"
#include "platform/macos/storage/FoundationBundle.h"
#include "platform/macos/storage/FoundationUserDefaults.h"
#include "platform/macos/storage/PropertyListUserDefaults.h"
#include "platform/macos/support/ContinuousClock.h"
#include "platform/macos/update/SparkleUpdater.h"

#import <AppKit/AppKit.h>
#import <Contacts/Contacts.h>
#import <ServiceManagement/ServiceManagement.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace orvel {

std::unique_ptr<tavrin::UserDefaults> makeUserDefaults(const std::filesystem::path& file) {
    return std::make_unique<PropertyListUserDefaults>(file);
}

void cleanEnvironment() {
    // The system's HTTP library logs requests with their headers, and keys of connections.
    for (const char* variable : {"CFNETWORK_DIAGNOSTICS", "SSLKEYLOGFILE"}) {
        unsetenv(variable);
    }
}

std::optional<int> passOnCallback(int, char**) {
    // The sign-in's web page passes its callback to the running agent.
    return std::nullopt;
}

void prepareEventLoop() {
    // In a program without windows, only this event loop of Qt runs the main dispatch queue.
    setenv("QT_EVENT_DISPATCHER_CORE_FOUNDATION", "1", 1);
}

Platform makePlatform(PlatformOptions options) {
    if (options.forbidsCoreDumps) {
        forbidCoreDumps();
    }
    Platform platform;
    auto bundle = FoundationBundle::ofThisProgram();
    const std::filesystem::path resources = bundle->resourceFolder();
    platform.bundle = std::move(bundle);
    platform.logStore = std::make_unique<UnifiedLogStore>(
        UnifiedLogStore::Options{platform.bundle->identifier(), options.standardErrorLevel});
    platform.clock = std::make_unique<ContinuousClock>();
    platform.userDefaults = std::make_unique<FoundationUserDefaults>(platform.bundle->identifier());
    platform.fileCopier = std::make_unique<CloningFileCopier>();

    std::vector<std::filesystem::path> certificates = std::move(options.extraCertificates);
    const std::string ofTheBundle = platform.bundle->infoString("TLS_EXTRA_CA").value_or("");
    if (!ofTheBundle.empty()) {
        // A relative path is relative to the resources.
        certificates.push_back(resources / ofTheBundle);
    }
    platform.urlSession = std::make_unique<FoundationURLSession>(certificates);

    // The system asks for access to the contacts, with the bundle's text.
    platform.addressBook = std::make_unique<ContactsAddressBook>([[CNContactStore alloc] init]);
    platform.workspace = std::make_unique<AppKitWorkspace>(NSWorkspace.sharedWorkspace);
    platform.instanceRegistry = std::make_unique<AppKitInstanceRegistry>();
    platform.motionPreference =
        std::make_unique<AppKitMotionPreference>(NSWorkspace.sharedWorkspace);
    platform.tray = std::make_unique<MenuBarTray>();
    platform.applicationFocus = std::make_unique<AppKitApplicationFocus>();
    platform.processControl = std::make_unique<AppKitProcessControl>();
    platform.keychain = std::make_unique<SecurityKeychain>(*platform.logStore);
    platform.webAuthenticationSession = std::make_unique<SystemAuthenticationSession>();
    platform.loginItem = std::make_unique<AppServiceLoginItem>(SMAppService.mainAppService);
    platform.softwareUpdater = std::make_unique<SparkleUpdater>();
    return platform;
}

} // namespace orvel
