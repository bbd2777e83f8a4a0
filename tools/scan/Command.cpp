// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/Command.h"

#include "OrvelAgent/base/Configuration.h"

namespace orvel {

PlatformOptions platformOptions(const ScanArguments& arguments) {
    PlatformOptions options;
    if (arguments.certificateFile) {
        options.extraCertificates.push_back(*arguments.certificateFile);
    }
    if (arguments.isVerbose) {
        options.standardErrorLevel = LogLevel::Info;
    }
    return options;
}

std::unique_ptr<AuthService> makeAuthService(const Platform& platform, Worker& worker) {
    const AuthService::Dependencies dependencies{
        *platform.urlSession,
        worker,
        *platform.keychain,
        *platform.webAuthenticationSession,
        *platform.workspace,
        *platform.clock,
        *platform.logStore};
    return std::make_unique<AuthService>(dependencies, Configuration(*platform.bundle));
}

} // namespace orvel
