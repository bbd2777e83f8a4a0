// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/base/Worker.h"
#include "core/Interface.h"
#include "platform/Platform.h"
#include "tools/scan/ScanArguments.h"

#include <QCoroTask>

#include <memory>

namespace orvel {

/// One action of `orvel-scan`. Main thread.
class Command : public tavrin::Interface {
public:
    static constexpr int succeeded = 0;
    static constexpr int failed = 1;

    /// Returns the exit status after all output is printed.
    virtual QCoro::Task<int> run() = 0;

    /// Ends `run` soon. It still cleans up.
    virtual void cancel() = 0;
};

/// The platform options that all commands share.
[[nodiscard]] PlatformOptions platformOptions(const ScanArguments& arguments);

/// Restores the session in the platform's keychain. Borrows the platform and the worker.
[[nodiscard]] std::unique_ptr<AuthService>
makeAuthService(const Platform& platform, Worker& worker);

} // namespace orvel
