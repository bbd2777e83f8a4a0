// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

@class SMAppService;

namespace orvel {

/// The application itself as a login item of the system's.
///
/// In the system's own settings the user can switch it off, and only there can it be switched on
/// again: until then registering it fails.
class AppServiceLoginItem final : public LoginItem {
public:
    AppServiceLoginItem();
    /// With another service than this application's.
    explicit AppServiceLoginItem(SMAppService* service);
    ~AppServiceLoginItem() override;

    void registerItem(Completion completion) override;
    void unregisterItem(Completion completion) override;
    void status(StatusCompletion completion) override;

private:
    SMAppService* service_;
    /// One after the other, because the service is another process, which may take longer than a
    /// frame. It lives until all its work is done.
    dispatch_queue_t calls_;
    PendingCalls<std::optional<tavrin::PlatformError>> changes_;
    PendingCalls<std::variant<Status, tavrin::PlatformError>> questions_;
};

} // namespace orvel
