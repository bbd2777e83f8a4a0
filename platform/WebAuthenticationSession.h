// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace orvel {

/// Signs in on a web page in the user's browser, with the browser's cookies, and receives the
/// page's redirect to a URL of the agent's scheme.
///
/// The page's URL is a secret, because it has the challenge: a callback with a code belongs to this
/// attempt only if the code was issued for its challenge. On macOS the system passes the URL to the
/// browser, and passes a callback only from the opened page. On Linux, programs pass both as
/// arguments, which every account of the machine can read. There the browser gets an address that
/// redirects it to the page once. A callback can come from every page that the browser shows and
/// from every program of the user.
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

    /// Decides how an attempt ends with a callback that can come from any page. No value: the
    /// callback is ignored, and the attempt waits for another one. Called on Linux only.
    using Screen = std::function<std::optional<Outcome>(std::string callback)>;

    /// A handle to a started attempt. Destroying the handle does not end the attempt; the handle
    /// may outlive the attempt.
    class Attempt : public tavrin::Interface {
    public:
        /// Ends the attempt with `Cancelled`, unless it has already ended.
        virtual void cancel() = 0;
    };

    /// Opens the page, an https URL, and calls back exactly once, on the caller's thread, never
    /// before this returns. Ends a pending earlier attempt. Only the first callback that is not
    /// ignored counts, and only while an attempt is pending.
    [[nodiscard]] virtual std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        Screen screen,
        std::function<void(Outcome)> completion) = 0;
};

} // namespace orvel
