// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/WebAuthenticationSession.h"
#include "platform/Workspace.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class QObject;

namespace orvel {

class SessionBus;

/// Signs in with the default browser. The page's redirect to the agent's scheme makes the desktop
/// start `orvel-agent-callback`, which hands the URL over on the session bus, under a name that
/// only the process with the latest sign-in has: on this machine, too, a later attempt ends an
/// earlier one.
///
/// An attempt waits ten minutes. The bus is connected at the first one, and anew at the next when
/// it was lost, which also ends the one that waits. Without a bus, or while another program keeps
/// the name, none starts. What counts as no callback is logged without query and fragment.
///
/// Borrows the workspace, the clock and the log store.
class BrowserAuthenticationSession final : public WebAuthenticationSession {
public:
    /// Does what is to be done before the browser opens, and calls back.
    using Prepare = std::function<void(std::function<void()> ready)>;

    static constexpr tavrin::Seconds longestWait{600};
    static constexpr std::size_t maximumCallbackBytes = std::size_t{8} << 10U;

    BrowserAuthenticationSession(
        Workspace& workspace, Clock& clock, LogStore& logStore, Prepare prepare);
    ~BrowserAuthenticationSession() override;

    [[nodiscard]] std::unique_ptr<Attempt> start(
        std::string url,
        std::string callbackScheme,
        std::function<void(Outcome)> completion) override;

private:
    class Receiver;
    class BrowserAttempt;
    /// Whoever has a pointer to it knows that it still waits: only the session owns it.
    struct Waiting;

    void connect();
    void listen();
    void requestName();
    /// Ends the attempt that waits when the name is another's. What tells of its loss may come
    /// late, when a later attempt has got it back.
    void checkName();
    void open();
    /// Ends the attempt that waits; nothing when none does.
    void finish(Outcome outcome);
    /// Gives whether it was taken.
    bool take(const std::string& callback);

    Workspace& workspace_;
    Clock& clock_;
    LogStore& logStore_;
    Prepare prepare_;
    std::shared_ptr<Waiting> waiting_;
    std::unique_ptr<Receiver> receiver_;
    std::unique_ptr<SessionBus> bus_;
    bool isConnecting_ = false;
    /// Destroyed first: what comes back from the bus is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
