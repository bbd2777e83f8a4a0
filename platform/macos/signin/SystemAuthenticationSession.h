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

/// Signs in with the system's own sheet, which shares the browser's cookies and catches the
/// callback itself: only the process that opened the page is told.
///
/// The sheet belongs to a window that cannot be seen, because an agent in the menu bar may have no
/// other.
class SystemAuthenticationSession final : public WebAuthenticationSession {
public:
    using CompletionHandler = void (^)(NSURL* callbackURL, NSError* error);
    using MakeSession = std::function<ASWebAuthenticationSession*(
        NSURL* url, NSString* callbackScheme, CompletionHandler completion)>;

    SystemAuthenticationSession();
    /// With other sessions than the system's.
    explicit SystemAuthenticationSession(MakeSession makeSession);
    ~SystemAuthenticationSession() override;

    [[nodiscard]] std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        std::function<void(Outcome)> completion) override;

private:
    class SheetAttempt;
    using Attempts = PendingCalls<Outcome>;

    [[nodiscard]] bool
    open(const std::string& url, const std::string& callbackScheme, const Attempts::Call& attempt);

    MakeSession makeSession_;
    /// Made with the first sheet: most programs never show one.
    OrvelPresentationAnchor* anchor_;
    /// The framework does not keep it alive while it runs.
    ASWebAuthenticationSession* session_;
    std::optional<Attempts::Call> latest_;
    /// How many have not been told their end.
    int unended_ = 0;
    Attempts attempts_;
};

} // namespace orvel
