// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/WebAuthenticationSession.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

@class ASWebAuthenticationSession;
@class OrvelPresentationAnchor;

namespace orvel {

/// Signs in with the system's sheet. It shares the browser's cookies. It passes only the callback
/// of the page that it shows, and only to the process that opened it, so no callback is screened.
///
/// The sheet is attached to an invisible window, because a menu bar agent may have no other window.
class SystemAuthenticationSession final : public WebAuthenticationSession {
public:
    using CompletionHandler = void (^)(NSURL* callbackURL, NSError* error);
    using MakeSession = std::function<ASWebAuthenticationSession*(
        NSURL* url, NSString* callbackScheme, CompletionHandler completion)>;

    SystemAuthenticationSession();
    /// For tests.
    explicit SystemAuthenticationSession(MakeSession makeSession);
    ~SystemAuthenticationSession() override;

    [[nodiscard]] std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        Screen screen,
        std::function<void(Outcome)> completion) override;

private:
    class SheetAttempt;
    using Attempts = PendingCalls<Outcome>;

    [[nodiscard]] bool
    open(const std::string& url, const std::string& callbackScheme, const Attempts::Call& attempt);

    MakeSession makeSession_;
    /// Created for the first sheet.
    OrvelPresentationAnchor* anchor_;
    /// Must be retained while it runs.
    ASWebAuthenticationSession* session_;
    std::optional<Attempts::Call> latest_;
    /// The number of attempts whose completion has not been called.
    int unfinished_ = 0;
    Attempts attempts_;
};

} // namespace orvel
