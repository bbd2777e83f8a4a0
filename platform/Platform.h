// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/UserDefaults.h"
#include "core/messages/FileCopier.h"
#include "platform/AddressBook.h"
#include "platform/ApplicationFocus.h"
#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/InstanceRegistry.h"
#include "platform/Keychain.h"
#include "platform/LogStore.h"
#include "platform/LoginItem.h"
#include "platform/MotionPreference.h"
#include "platform/ProcessControl.h"
#include "platform/SoftwareUpdater.h"
#include "platform/Tray.h"
#include "platform/URLSession.h"
#include "platform/WebAuthenticationSession.h"
#include "platform/Workspace.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

struct PlatformOptions {
    /// PEM files of certificates to trust in addition to the system's and the bundle's
    /// "TLS_EXTRA_CA".
    std::vector<std::filesystem::path> extraCertificates;
    /// Log lines of this level and above also go to standard error; none when absent.
    std::optional<LogLevel> standardErrorLevel;
    /// Asks the user whether the agent may read the address book, and passes the answer to its
    /// argument once, on the main thread. If called while the question is open, brings it to the
    /// front; the answer may then go to either argument. When absent, the user cannot be asked.
    std::function<void(std::function<void(bool)> answer)> askForContacts;
    /// Calls `forbidCoreDumps`. Off in debug builds, where developers need core dumps.
#ifdef NDEBUG
    bool forbidsCoreDumps = true;
#else
    bool forbidsCoreDumps = false;
#endif
};

/// The operating system's services. Members borrow from members declared above them.
struct Platform {
    std::unique_ptr<LogStore> logStore;
    std::unique_ptr<Bundle> bundle;
    std::unique_ptr<Clock> clock;
    std::unique_ptr<tavrin::UserDefaults> userDefaults;
    std::unique_ptr<tavrin::FileCopier> fileCopier;
    std::unique_ptr<URLSession> urlSession;
    std::unique_ptr<AddressBook> addressBook;
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<InstanceRegistry> instanceRegistry;
    std::unique_ptr<MotionPreference> motionPreference;
    std::unique_ptr<Tray> tray;
    std::unique_ptr<ApplicationFocus> applicationFocus;
    std::unique_ptr<ProcessControl> processControl;
    std::unique_ptr<Keychain> keychain;
    std::unique_ptr<WebAuthenticationSession> webAuthenticationSession;
    std::unique_ptr<LoginItem> loginItem;
    std::unique_ptr<SoftwareUpdater> softwareUpdater;
};

/// Call first in `main`, before any thread. Removes the environment variables that make a library
/// of the system record secrets or load code. Programs that this process starts do not get them
/// either.
void cleanEnvironment();

/// Passes on the URL that ends a sign-in, if the desktop has started this program with it as the
/// only argument. Returns the exit status; nothing for other arguments. Call before constructing
/// the application object.
[[nodiscard]] std::optional<int> passOnCallback(int argc, char** argv);

/// Call before constructing the application object. Selects an event loop that can run the ports'
/// callbacks.
void prepareEventLoop();

/// User defaults stored in that file, which need not exist. Throws `tavrin::PlatformError` when it
/// cannot be read.
[[nodiscard]] std::unique_ptr<tavrin::UserDefaults>
makeUserDefaults(const std::filesystem::path& file);

/// This system's implementations. Main thread, after the application object was constructed. Throws
/// `tavrin::PlatformError` when the bundle, the user defaults or a certificate file cannot be read.
[[nodiscard]] Platform makePlatform(PlatformOptions options);

} // namespace orvel
