// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"
#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/linux/support/CallbackContext.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <string_view>

class QSocketNotifier;

namespace orvel {

/// An address of this machine that redirects the user's browser to a page. Every account of the
/// machine can read the command line that opens the browser, so that line has this address instead
/// of the page's, which is a secret.
///
/// Only programs of this account get the page, as often as they ask: a browser may reload, and a
/// desktop may look at an address before it starts the browser. A connection of another account is
/// closed before anything is read from it. If the system does not tell the account of a connection,
/// the first request gets the page, and a second one of any account ends the address, because then
/// one of the two may not have been the user's browser. A HEAD request gets no page. Other requests
/// have no effect. A web page cannot use the address, even if it knows it: its browser names the
/// page's site in the request.
///
/// Main thread. Never blocks. Borrows the clock and the log store. Not Qt's server, because Qt
/// Network with its libraries would be loaded at the start of the agent.
class OneTimeAddress final {
public:
    static constexpr std::size_t maximumRequestBytes = std::size_t{64} << 10U;
    /// Later connections of the user's programs are closed at once.
    static constexpr std::size_t maximumConnections = 32;
    static constexpr tavrin::Seconds requestTimeout{10};
    /// After a connection could not be accepted, for example because too many files are open.
    static constexpr tavrin::Seconds acceptPause{0.25};

    /// `page` is an https URL. `usedTwice` is called at most once, from the event loop, when a
    /// second request has ended the address. It may destroy this object. Throws
    /// `tavrin::PlatformError`.
    OneTimeAddress(
        std::string page, Clock& clock, LogStore& logStore, std::function<void()> usedTwice);
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

    /// The account that holds the other end of a connection.
    enum class Peer { Own, Other, Undetermined };

    void listen();
    void accept();
    [[nodiscard]] Peer peerAt(std::uint16_t port);
    void add(tavrin::FileDescriptor socket, Peer peer);
    void read(Connections::iterator connection);
    /// The reply to a complete request.
    [[nodiscard]] std::string replyTo(std::string_view request, Peer peer);
    void end();
    void logOnce(const std::string& line);

    const std::string page_;
    Clock& clock_;
    LogStore& logStore_;
    std::function<void()> usedTwice_;
    std::string path_;
    std::string host_;
    std::string url_;
    std::uint16_t port_ = 0;
    bool isUsed_ = false;
    /// Whether a program of an undetermined account has asked for the page.
    bool isSingleUse_ = false;
    std::set<std::string> logged_;
    tavrin::FileDescriptor socket_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::unique_ptr<Clock::Timer> pause_;
    Connections connections_;
    /// Destroyed first: drops a pending callback.
    CallbackContext callbackContext_;
};

} // namespace orvel
