// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <functional>
#include <memory>
#include <string>
#include <variant>

namespace orvel {

/// Signs in on a web page in the user's browser, which keeps its cookies, and catches the page's
/// redirect to a URL of the agent's own scheme.
///
/// Main thread. Destroying the session ends the attempt that waits without calling back.
class WebAuthenticationSession : public tavrin::Interface {
public:
    /// The page could not be opened.
    struct NotStarted {};
    /// The user gave up, `cancel` was called, or another attempt took this one's place.
    struct Cancelled {};
    /// It ended with neither a callback nor a reason, for example by taking too long.
    struct NoResponse {};
    /// Any other end, in the system's words.
    struct Failed {
        std::string description;
    };
    /// The callback URL as it came, or why there is none. The URL is an outsider's text; only its
    /// scheme is certain.
    using Outcome = std::variant<std::string, NotStarted, Cancelled, NoResponse, Failed>;

    /// A started attempt. Destroying it changes nothing; it may outlive the attempt's end.
    class Attempt : public tavrin::Interface {
    public:
        /// Ends the attempt with `Cancelled`; nothing when it has already ended.
        virtual void cancel() = 0;
    };

    /// Opens the page, an https URL, and calls back exactly once, on the caller's thread, never
    /// before this returns. A later attempt ends an earlier one that still waits. Callbacks count
    /// only while an attempt waits, and only the first does.
    [[nodiscard]] virtual std::unique_ptr<Attempt>
    start(std::string url, std::string callbackScheme, std::function<void(Outcome)> completion) = 0;
};

} // namespace orvel
