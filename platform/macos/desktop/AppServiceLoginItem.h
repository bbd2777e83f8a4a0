// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

@class SMAppService;

namespace orvel {

/// Registers the application as a login item.
///
/// If the user switches it off in System Settings, registering fails until the user switches it on
/// there.
class AppServiceLoginItem final : public LoginItem {
public:
    explicit AppServiceLoginItem(SMAppService* service);

    void registerItem(Completion completion) override;
    void unregisterItem(Completion completion) override;
    /// Does nothing: the system registers the application, not its path.
    void repairItem(Completion completion) override;
    void status(StatusCompletion completion) override;

private:
    SMAppService* service_;
    /// Runs the calls one after another, off the main thread: they wait for another process. It
    /// lives until its last call has finished.
    dispatch_queue_t calls_;
    PendingCalls<std::optional<tavrin::PlatformError>> changes_;
    PendingCalls<std::variant<Status, tavrin::PlatformError>> questions_;
};

} // namespace orvel
