// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/WebAuthenticationSession.h"
#include "platform/Workspace.h"
#include "platform/linux/signin/OneTimeAddress.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/SessionBus.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace orvel {

/// Signs in with the default browser. The page's redirect to the agent's scheme makes the desktop
/// start `orvel-agent-callback`, which passes the URL over the session bus to a name that only one
/// process can own. A new attempt takes the name and thus ends an earlier attempt of any process.
///
/// The browser opens the page through a `OneTimeAddress`. Callbacks count after the browser was
/// redirected to the page. If the system does not tell which account uses the address, a second use
/// ends the attempt.
///
/// An attempt times out after ten minutes. The first attempt connects to the bus. Losing the bus
/// ends the pending attempt; the next one reconnects. An attempt fails to start without a bus, or
/// while another program keeps the name. Ignored callbacks are logged without query and fragment.
///
/// Borrows the workspace, the clock and the log store.
class BrowserAuthenticationSession final : public WebAuthenticationSession {
public:
    /// Runs before the browser opens, then calls back.
    using Prepare = std::function<void(std::function<void()> ready)>;

    static constexpr tavrin::Seconds longestWait{600};
    static constexpr std::size_t maximumCallbackBytes = std::size_t{8} << 10U;

    BrowserAuthenticationSession(
        Workspace& workspace, Clock& clock, LogStore& logStore, Prepare prepare);
    ~BrowserAuthenticationSession() override;

    [[nodiscard]] std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        Screen screen,
        std::function<void(Outcome)> completion) override;

private:
    class Receiver;
    class BrowserAttempt;
    /// The pending attempt. Only the session owns it, so a weak pointer to it expires when it ends.
    struct Waiting;

    void connect();
    void listen();
    void requestName();
    /// Ends the pending attempt if another process owns the name. The signal about losing the name
    /// may be late, after a later attempt took it back, so ask the bus.
    void checkName();
    void open();
    /// Ends the attempt, which could not be started.
    void fail(std::string_view reason);
    /// Ends the pending attempt, if any.
    void finish(Outcome outcome);
    /// Returns whether the callback was accepted.
    bool take(const std::string& callback);

    Workspace& workspace_;
    Clock& clock_;
    LogStore& logStore_;
    Prepare prepare_;
    std::shared_ptr<Waiting> waiting_;
    std::unique_ptr<Receiver> receiver_;
    std::unique_ptr<SessionBus> bus_;
    bool isConnecting_ = false;
    /// Destroyed first: drops pending replies.
    CallbackContext callbackContext_;
};

} // namespace orvel
