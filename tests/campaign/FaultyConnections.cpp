// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/FaultyConnections.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The functions of sockets take the general type.
sockaddr* general(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

bool sendAll(const tavrin::FileDescriptor& descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = send(descriptor.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// Closing then sends a reset.
void resetOnClose(const tavrin::FileDescriptor& descriptor) {
    linger noLinger{};
    noLinger.l_onoff = 1;
    setsockopt(descriptor.get(), SOL_SOCKET, SO_LINGER, &noLinger, sizeof noLinger);
}

} // namespace

FaultyConnections::FaultyConnections(std::uint16_t target)
    : target_(target),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      end_(eventfd(0, EFD_CLOEXEC)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (!end_.isOpen() || bind(listener_.get(), general(address), size) != 0 ||
        listen(listener_.get(), SOMAXCONN) != 0 ||
        getsockname(listener_.get(), general(address), &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "Could not listen");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { run(); });
}

FaultyConnections::~FaultyConnections() {
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void FaultyConnections::arm(Fault fault) {
    const std::lock_guard lock(mutex_);
    fault_ = std::move(fault);
    requestBytes_ = 0;
    replyBytes_ = 0;
}

void FaultyConnections::disarm() {
    const std::lock_guard lock(mutex_);
    fault_.reset();
}

std::size_t FaultyConnections::passed(Fault::Side side) {
    const std::lock_guard lock(mutex_);
    return side == Fault::Side::Request ? requestBytes_ : replyBytes_;
}

std::optional<int> FaultyConnections::wait(std::initializer_list<int> descriptors) const {
    std::vector<pollfd> waiting{{end_.get(), POLLIN, 0}};
    for (const int descriptor : descriptors) {
        waiting.push_back({descriptor, POLLIN, 0});
    }
    while (poll(waiting.data(), waiting.size(), -1) < 0) {
    }
    const auto ready =
        std::ranges::find_if(waiting, [](const pollfd& entry) { return entry.revents != 0; });
    return ready == waiting.begin() ? std::nullopt : std::optional(ready->fd);
}

void FaultyConnections::run() {
    while (wait({listener_.get()})) {
        const Descriptor client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client.isOpen()) {
            serve(client);
        }
    }
}

void FaultyConnections::serve(const Descriptor& client) {
    const Descriptor service(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(target_);
    if (connect(service.get(), general(address), sizeof address) != 0) {
        return;
    }
    for (const auto side : {Fault::Side::Request, Fault::Side::Reply}) {
        std::size_t none = 0;
        if (const auto fault = count(side, none)) {
            cause(*fault, client, service);
            return;
        }
    }
    while (const auto ready = wait({client.get(), service.get()})) {
        const auto side = *ready == client.get() ? Fault::Side::Request : Fault::Side::Reply;
        if (!forward(side, client, service)) {
            return;
        }
    }
}

bool FaultyConnections::forward(
    Fault::Side side, const Descriptor& client, const Descriptor& service) {
    const bool isRequest = side == Fault::Side::Request;
    const Descriptor& from = isRequest ? client : service;
    const Descriptor& to = isRequest ? service : client;
    std::array<char, 16384> buffer{};
    const ssize_t received = recv(from.get(), buffer.data(), buffer.size(), 0);
    if (received < 0) {
        resetOnClose(to);
    }
    if (received <= 0) {
        return false;
    }
    auto size = static_cast<std::size_t>(received);
    const auto fault = count(side, size);
    if (!sendAll(to, {buffer.data(), size})) {
        return false;
    }
    if (fault) {
        cause(*fault, client, service);
    }
    return !fault;
}

std::optional<FaultyConnections::Fault>
FaultyConnections::count(Fault::Side side, std::size_t& size) {
    const std::lock_guard lock(mutex_);
    std::size_t& passed = side == Fault::Side::Request ? requestBytes_ : replyBytes_;
    std::optional<Fault> fault;
    if (fault_ && fault_->side == side && passed + size >= fault_->after) {
        fault = std::exchange(fault_, std::nullopt);
        size = fault->after - passed;
    }
    passed += size;
    return fault;
}

void FaultyConnections::cause(
    const Fault& fault, const Descriptor& client, const Descriptor& service) const {
    switch (fault.effect) {
    case Fault::Effect::Reset:
        resetOnClose(client);
        resetOnClose(service);
        return;
    case Fault::Effect::Garbage:
        sendAll(client, fault.garbage);
        return;
    case Fault::Effect::Stall:
        shutdown(service.get(), SHUT_RDWR);
        std::array<char, 4096> ignored{};
        while (wait({client.get()}) && recv(client.get(), ignored.data(), ignored.size(), 0) > 0) {
        }
    }
}

} // namespace orvel::test
