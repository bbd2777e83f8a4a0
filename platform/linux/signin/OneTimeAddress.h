// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/linux/support/CallbackContext.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

class QSocketNotifier;

namespace orvel {

/// An address of this machine that redirects the user's browser to a page, once. Every account of
/// the machine can read the command line that opens the browser, so that line has this address
/// instead of the page's, which is a secret.
///
/// Only a browser of this account gets the page: a connection of another account is closed before
/// anything is read from it. A second request for the address ends it, because then one of the two
/// was not the user's browser. Other requests have no effect. A web page cannot use the address,
/// even if it knows it: its browser names the page's site in the request.
///
/// Main thread. Never blocks. Borrows the clock and the log store. Not Qt's server, because Qt
/// Network with its libraries would be loaded at the start of the agent.
class OneTimeAddress final {
public:
    /// The page was asked for a second time.
    struct UsedTwice {};
    /// Why the address stopped working: `UsedTwice`, or a system error before the first use.
    using End = std::variant<UsedTwice, tavrin::PlatformError>;

    static constexpr std::size_t maximumRequestBytes = std::size_t{64} << 10U;
    /// Later connections of the user's programs are closed at once.
    static constexpr std::size_t maximumConnections = 32;
    static constexpr tavrin::Seconds requestTimeout{10};

    /// `page` is an https URL. `ended` is called at most once, from the event loop, and may destroy
    /// this object. Throws `tavrin::PlatformError`.
    OneTimeAddress(
        std::string page, Clock& clock, LogStore& logStore, std::function<void(End)> ended);
    /// Closes the address.
    ~OneTimeAddress();
    OneTimeAddress(const OneTimeAddress&) = delete;
    OneTimeAddress& operator=(const OneTimeAddress&) = delete;

    [[nodiscard]] const std::string& url() const { return url_; }
    /// Whether the browser was redirected to the page.
    [[nodiscard]] bool isUsed() const { return isUsed_; }

private:
    struct Connection;
    using Connections = std::list<Connection>;

    void listen();
    void accept();
    /// Whether the other end belongs to this account.
    [[nodiscard]] bool isOwn(std::uint16_t peerPort);
    void add(tavrin::FileDescriptor socket);
    void read(Connections::iterator connection);
    /// The reply to a complete request.
    [[nodiscard]] std::string replyTo(std::string_view request);
    void end(End reason);

    const std::string page_;
    Clock& clock_;
    LogStore& logStore_;
    std::function<void(End)> ended_;
    std::string path_;
    std::string host_;
    std::string url_;
    std::uint16_t port_ = 0;
    bool isUsed_ = false;
    bool hasRefused_ = false;
    tavrin::FileDescriptor socket_;
    std::unique_ptr<QSocketNotifier> notifier_;
    Connections connections_;
    /// Destroyed first: drops a pending callback.
    CallbackContext callbackContext_;
};

} // namespace orvel
