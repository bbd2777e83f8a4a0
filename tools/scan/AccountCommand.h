// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/base/Worker.h"
#include "tools/scan/Command.h"

#include <memory>

namespace orvel {

/// Signs in, signs out, or prints the account.
class AccountCommand final : public Command {
public:
    /// Throws `tavrin::PlatformError` if a file cannot be read.
    explicit AccountCommand(ScanArguments arguments);
    ~AccountCommand() override;

    QCoro::Task<int> run() override;
    void cancel() override;

private:
    QCoro::Task<int> signIn();
    QCoro::Task<int> signOut();
    QCoro::Task<int> showAccount();
    void printAccount() const;

    ScanArguments arguments_;
    tavrin::CancellationSource cancellation_;
    Platform platform_;
    Worker worker_;
    std::unique_ptr<AuthService> auth_;
};

} // namespace orvel
