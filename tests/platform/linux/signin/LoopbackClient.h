// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace orvel::test {

/// A connection to the address "http://127.0.0.1:PORT/PATH", which this thread's event loop serves.
class LoopbackClient final {
public:
    enum class Protocol { IPv4, IPv6 };

    /// Connects, or throws `std::system_error`.
    explicit LoopbackClient(const std::string& url, Protocol protocol = Protocol::IPv4)
        : LoopbackClient(url, protocol, std::nullopt) {}
    /// Connects as another account, which only root can.
    LoopbackClient(const std::string& url, uid_t account)
        : LoopbackClient(url, Protocol::IPv4, account) {}

    /// The request that a browser sends when another program opens the address.
    [[nodiscard]] static std::string browserRequest(const std::string& url) {
        const std::string_view address = std::string_view(url).substr(sizeof "http://" - 1);
        const std::size_t path = address.find('/');
        return fmt::format(
            "GET {} HTTP/1.1\r\nHost: {}\r\nConnection: keep-alive\r\n"
            "Sec-Fetch-Site: none\r\nSec-Fetch-Mode: navigate\r\nSec-Fetch-User: ?1\r\n"
            "Sec-Fetch-Dest: document\r\nAccept-Encoding: gzip\r\n\r\n",
            address.substr(path),
            address.substr(0, path));
    }

    /// Opens the address as a browser does. Returns the reply.
    [[nodiscard]] static std::string visit(const std::string& url) {
        LoopbackClient client(url);
        client.send(browserRequest(url));
        return client.reply();
    }

    /// Where a reply redirects the browser; empty if it does not.
    [[nodiscard]] static std::string location(const std::string& reply) {
        constexpr std::string_view start = "HTTP/1.1 302 Found\r\nLocation: ";
        return reply.starts_with(start)
                   ? reply.substr(start.size(), reply.find("\r\n", start.size()) - start.size())
                   : std::string();
    }

    /// Has no effect if the other end has closed the connection.
    void send(std::string_view text) const {
        static_cast<void>(::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL));
    }

    void stopSending() const { shutdown(socket_.get(), SHUT_WR); }

    [[nodiscard]] std::uint16_t port() const {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

    /// Whether the other end has closed the connection. Receives what has arrived.
    [[nodiscard]] bool isClosed() {
        std::array<char, 4096> bytes{};
        const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        received_.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        return count == 0 || (count < 0 && errno != EAGAIN);
    }

    /// Everything that arrives until the other end closes the connection.
    [[nodiscard]] std::string reply() {
        if (!waitUntil([this] { return isClosed(); })) {
            throw std::runtime_error("The address does not answer.");
        }
        return received_;
    }

private:
    LoopbackClient(const std::string& url, Protocol protocol, std::optional<uid_t> account) {
        const std::size_t colon = url.rfind(':');
        const auto port = static_cast<std::uint16_t>(std::stoi(url.substr(colon + 1)));
        // The new thread's account is the socket's. Unlike the C library's function, the system
        // call changes this thread only.
        int error = 0;
        std::thread([&] {
            if (account && syscall(SYS_setresuid, *account, *account, *account) != 0) {
                error = errno;
                return;
            }
            error = connect(port, protocol);
        }).join();
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), url);
        }
    }

    /// Returns the error, or 0.
    int connect(std::uint16_t port, Protocol protocol) {
        sockaddr_in6 mapped{};
        mapped.sin6_family = AF_INET6;
        mapped.sin6_port = htons(port);
        mapped.sin6_addr = {{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 127, 0, 0, 1}}};
        sockaddr_in plain{};
        plain.sin_family = AF_INET;
        plain.sin_port = htons(port);
        plain.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool isIPv6 = protocol == Protocol::IPv6;
        socket_ = tavrin::FileDescriptor(
            ::socket(isIPv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const auto* address = isIPv6 ? reinterpret_cast<const sockaddr*>(&mapped)
                                     : reinterpret_cast<const sockaddr*>(&plain);
        const socklen_t size = isIPv6 ? sizeof mapped : sizeof plain;
        return ::connect(socket_.get(), address, size) == 0 ? 0 : errno;
    }

    tavrin::FileDescriptor socket_;
    std::string received_;
};

} // namespace orvel::test
