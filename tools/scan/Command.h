// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/base/Worker.h"
#include "platform/Platform.h"
#include "tools/scan/ScanArguments.h"

#include <QCoroTask>

#include <memory>

namespace orvel {

/// What one run of `orvel-scan` does. Main thread.
class Command {
public:
    static constexpr int succeeded = 0;
    static constexpr int failed = 1;

    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// Gives the exit status, after everything is printed.
    virtual QCoro::Task<int> run() = 0;

    /// Ends it: `run` then comes to its end soon, with nothing left behind, or the event loop is
    /// left at once where there is nothing to leave behind.
    virtual void cancel() = 0;
};

/// What every command wants of the platform.
[[nodiscard]] PlatformOptions platformOptions(const ScanArguments& arguments);

/// The session that the platform's keychain holds. Borrows the platform and the worker.
[[nodiscard]] std::unique_ptr<AuthService>
makeAuthService(const Platform& platform, Worker& worker);

} // namespace orvel
