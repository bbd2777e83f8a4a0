// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <functional>
#include <memory>
#include <string>
#include <variant>

namespace orvel {

/// Signs in on a web page in the user's browser, with the browser's cookies, and receives the
/// page's redirect to a URL of the agent's scheme.
///
/// Main thread. Destroying the session ends a pending attempt without calling back.
class WebAuthenticationSession : public tavrin::Interface {
public:
    /// The page could not be opened.
    struct NotStarted {};
    /// The user gave up, `cancel` was called, or another attempt replaced this one.
    struct Cancelled {};
    /// It ended without a callback or a reason, for example by a timeout.
    struct NoResponse {};
    /// Any other failure, with the system's description.
    struct Failed {
        std::string description;
    };
    /// The unchanged callback URL, or why there is none. Only the URL's scheme is verified; treat
    /// the rest as hostile.
    using Outcome = std::variant<std::string, NotStarted, Cancelled, NoResponse, Failed>;

    /// A handle to a started attempt. Destroying the handle does not end the attempt; the handle
    /// may outlive the attempt.
    class Attempt : public tavrin::Interface {
    public:
        /// Ends the attempt with `Cancelled`, unless it has already ended.
        virtual void cancel() = 0;
    };

    /// Opens the page, an https URL, and calls back exactly once, on the caller's thread, never
    /// before this returns. Ends a pending earlier attempt. Only the first callback counts, and
    /// only while an attempt is pending.
    [[nodiscard]] virtual std::unique_ptr<Attempt>
    start(std::string url, std::string callbackScheme, std::function<void(Outcome)> completion) = 0;
};

} // namespace orvel
