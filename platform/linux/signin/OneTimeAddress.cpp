// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/OneTimeAddress.h"

#include "core/Errors.h"
#include "core/SecureRandom.h"
#include "platform/LoopbackPeer.h"

#include <QSocketNotifier>

#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <thread>
#include <utility>

namespace orvel {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view requestEnd = "\r\n\r\n";

/// A path that cannot be guessed.
std::string randomPath() {
    std::array<std::byte, 16> bytes{};
    tavrin::fillWithSecureRandom(bytes);
    std::string path = "/";
    for (const std::byte byte : bytes) {
        path += fmt::format("{:02x}", std::to_integer<unsigned>(byte));
    }
    return path;
}

std::string reply(
    std::string_view status,
    std::string_view header,
    std::string_view sentence,
    std::string_view type = "text/plain; charset=utf-8") {
    return fmt::format(
        "HTTP/1.1 {}\r\n"
        "{}"
        "Cache-Control: no-store\r\n"
        "Connection: close\r\n"
        "Content-Length: {}\r\n"
        "Content-Type: {}\r\n"
        "X-Content-Type-Options: nosniff\r\n"
        "\r\n"
        "{}",
        status,
        header,
        sentence.size(),
        type,
        sentence);
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                    : character;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

/// The value of the request's first header of that name.
std::optional<std::string_view> header(std::string_view request, std::string_view name) {
    for (std::size_t end = request.find(lineEnd); end != std::string_view::npos;) {
        request.remove_prefix(end + lineEnd.size());
        end = request.find(lineEnd);
        std::string_view line = request.substr(0, end);
        if (line.size() <= name.size() || line[name.size()] != ':' ||
            !equalsIgnoringCase(line.substr(0, name.size()), name)) {
            continue;
        }
        line.remove_prefix(name.size() + 1);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        return line.substr(0, line.find_last_not_of(" \t") + 1);
    }
    return std::nullopt;
}

/// Whether a page of another site caused the request. Browsers say so.
bool isFromAnotherSite(std::string_view request) {
    const std::string_view site = header(request, "Sec-Fetch-Site").value_or("none");
    return site == "cross-site" || site == "same-site";
}

sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

[[noreturn]] void throwError() {
    throw tavrin::PlatformError::fromErrno(errno, "Could not open an address for the browser");
}

} // namespace

struct OneTimeAddress::Connection {
    tavrin::FileDescriptor socket;
    Peer peer;
    std::string received = {};
    std::unique_ptr<QSocketNotifier> notifier = {};
    std::unique_ptr<Clock::Timer> timer = {};
};

OneTimeAddress::OneTimeAddress(
    std::string page, Clock& clock, LogStore& logStore, std::function<void()> usedTwice)
    : page_(std::move(page)),
      clock_(clock),
      logStore_(logStore),
      usedTwice_(std::move(usedTwice)),
      path_(randomPath()) {
    listen();
    host_ = fmt::format("127.0.0.1:{}", port_);
    url_ = "http://" + host_ + path_;
    // The system's first answer may need a kernel module, and loading one takes longer than a
    // frame. The browser takes longer to start.
    std::thread([port = port_] {
        try {
            static_cast<void>(loopbackPeer(0, port));
        } catch (const tavrin::PlatformError&) {
            // Logged when a program connects.
        }
    }).detach();
}

OneTimeAddress::~OneTimeAddress() = default;

void OneTimeAddress::listen() {
    socket_ = tavrin::FileDescriptor(
        socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    sockaddr_in address = loopback();
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (!socket_.isOpen() || bind(socket_.get(), generic, size) != 0 ||
        ::listen(socket_.get(), SOMAXCONN) != 0 ||
        getsockname(socket_.get(), generic, &size) != 0) {
        throwError();
    }
    port_ = ntohs(address.sin_port);
    notifier_ = std::make_unique<QSocketNotifier>(socket_.get(), QSocketNotifier::Read);
    QObject::connect(
        notifier_.get(), &QSocketNotifier::activated, &callbackContext_, [this] { accept(); });
}

void OneTimeAddress::accept() {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    tavrin::FileDescriptor socket(accept4(
        socket_.get(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.isOpen()) {
        const int error = errno;
        if (error == EAGAIN || error == ECONNABORTED || error == EINTR) {
            return;
        }
        // The connection still waits, so the notifier would report it again at once.
        notifier_->setEnabled(false);
        pause_ = clock_.schedule(acceptPause, [this] { notifier_->setEnabled(true); });
        logOnce(
            tavrin::PlatformError::fromErrno(error, "the browser must wait for the sign-in page")
                .what());
        return;
    }
    if (connections_.size() >= maximumConnections) {
        return;
    }
    if (const Peer account = peerAt(ntohs(peer.sin_port)); account != Peer::Other) {
        add(std::move(socket), account);
    }
}

OneTimeAddress::Peer OneTimeAddress::peerAt(std::uint16_t port) {
    try {
        const std::optional<uid_t> account = loopbackPeer(port, port_);
        if (account == geteuid()) {
            return Peer::Own;
        }
        logOnce(
            account ? "another account of this machine tried to open the sign-in page and got "
                      "nothing"
                    : "a program closed its connection to the sign-in page before its account was "
                      "known, and got nothing");
        return Peer::Other;
    } catch (const tavrin::PlatformError& error) {
        logOnce(fmt::format("the sign-in page can be opened only once: {}", error.what()));
        return Peer::Undetermined;
    }
}

void OneTimeAddress::logOnce(const std::string& line) {
    if (logged_.insert(line).second) {
        logStore_.write(LogLevel::Error, "auth", line);
    }
}

void OneTimeAddress::add(tavrin::FileDescriptor socket, Peer peer) {
    const auto added = connections_.insert(connections_.end(), Connection{std::move(socket), peer});
    added->notifier = std::make_unique<QSocketNotifier>(added->socket.get(), QSocketNotifier::Read);
    QObject::connect(
        added->notifier.get(), &QSocketNotifier::activated, &callbackContext_, [this, added] {
            read(added);
        });
    added->timer = clock_.schedule(requestTimeout, [this, added] { connections_.erase(added); });
}

void OneTimeAddress::read(Connections::iterator connection) {
    std::array<char, 4096> bytes{};
    const ssize_t count = recv(connection->socket.get(), bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    std::string& received = connection->received;
    received.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    const std::size_t length = received.find(requestEnd);
    if (length != std::string::npos) {
        const std::string answer =
            replyTo(std::string_view(received).substr(0, length), connection->peer);
        // It fits into the empty buffer of the socket. A browser that is gone gets nothing.
        static_cast<void>(
            send(connection->socket.get(), answer.data(), answer.size(), MSG_NOSIGNAL));
        shutdown(connection->socket.get(), SHUT_WR);
    } else if (count > 0 && received.size() < maximumRequestBytes) {
        return;
    }
    // Removed later, because its notifier is calling.
    connection->notifier->setEnabled(false);
    connection->timer.reset();
    callbackContext_.post([this, connection] { connections_.erase(connection); });
}

std::string OneTimeAddress::replyTo(std::string_view request, Peer peer) {
    const std::string_view line = request.substr(0, request.find(lineEnd));
    const std::string_view method = line.substr(0, line.find(' '));
    const std::string target = fmt::format("{} {} HTTP/1.", method, path_);
    const bool isForAddress = (method == "GET" || method == "HEAD") &&
                              (line == target + "1" || line == target + "0") &&
                              header(request, "Host") == host_ && !isFromAnotherSite(request);
    if (!isForAddress) {
        return reply("404 Not Found", "", "There is nothing here.\n");
    }
    if (method == "HEAD") {
        // A desktop asks for the type, to choose the program. With a redirection, it could put the
        // page's address into that program's arguments.
        return reply("200 OK", "", "", "text/html");
    }
    isSingleUse_ = isSingleUse_ || peer == Peer::Undetermined;
    if (!std::exchange(isUsed_, true) || !isSingleUse_) {
        return reply("302 Found", "Location: " + page_ + "\r\n", "");
    }
    end();
    return reply(
        "410 Gone",
        "",
        "This sign-in was ended, because its address had already been opened.\n"
        "Go back to Orvel Agent and start the sign-in again.\n");
}

void OneTimeAddress::end() {
    pause_.reset();
    notifier_->setEnabled(false);
    callbackContext_.post([this] {
        socket_ = tavrin::FileDescriptor();
        if (const auto usedTwice = std::exchange(usedTwice_, nullptr)) {
            usedTwice();
        }
    });
}

} // namespace orvel
