// SPDX-License-Identifier: Apache-2.0
#include "platform/LoopbackPeer.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace orvel {

namespace {

constexpr auto whatFailed = "The account of a connection could not be determined";

[[noreturn]] void fail(int error) {
    throw tavrin::PlatformError::fromErrno(error, whatFailed);
}

struct Question {
    nlmsghdr header;
    inet_diag_req_v2 request;
};

/// For one socket, whose ports are exactly these. This also finds sockets for IPv6.
Question questionFor(std::uint16_t localPort, std::uint16_t remotePort) {
    Question question{};
    question.header.nlmsg_len = sizeof question;
    question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.request.sdiag_family = AF_INET;
    question.request.sdiag_protocol = IPPROTO_TCP;
    question.request.idiag_states = ~0U;
    inet_diag_sockid& id = question.request.id;
    id.idiag_sport = htons(localPort);
    id.idiag_dport = htons(remotePort);
    id.idiag_src[0] = htonl(INADDR_LOOPBACK);
    id.idiag_dst[0] = htonl(INADDR_LOOPBACK);
    id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return question;
}

void send(int netlink, Question question) {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    iovec content{&question, sizeof question};
    msghdr message{};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof kernel;
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (sendmsg(netlink, &message, MSG_NOSIGNAL) < 0) {
        fail(errno);
    }
}

/// The socket with these ports, or one that listens at the local port. The kernel answers within
/// the call that sends the question, so nothing waits.
std::optional<inet_diag_msg> find(int netlink, std::uint16_t localPort, std::uint16_t remotePort) {
    send(netlink, questionFor(localPort, remotePort));
    alignas(nlmsghdr) std::array<std::byte, 8192> buffer{};
    const ssize_t received = recv(netlink, buffer.data(), buffer.size(), 0);
    if (received < 0) {
        fail(errno);
    }
    nlmsghdr header{};
    std::memcpy(&header, buffer.data(), sizeof header);
    const std::byte* const content = buffer.data() + NLMSG_HDRLEN;
    const auto holds = [&](std::size_t size) {
        return static_cast<std::size_t>(received) >= NLMSG_HDRLEN + size;
    };
    if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY && holds(sizeof(inet_diag_msg))) {
        inet_diag_msg found{};
        std::memcpy(&found, content, sizeof found);
        return found;
    }
    if (header.nlmsg_type != NLMSG_ERROR || !holds(sizeof(nlmsgerr))) {
        fail(EBADMSG);
    }
    nlmsgerr error{};
    std::memcpy(&error, content, sizeof error);
    if (error.error != -ENOENT) {
        fail(-error.error);
    }
    return std::nullopt;
}

} // namespace

std::optional<uid_t> loopbackPeer(std::uint16_t peerPort, std::uint16_t ownPort) {
    const tavrin::FileDescriptor netlink(
        socket(AF_NETLINK, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!netlink.isOpen()) {
        fail(errno);
    }
    const auto peer = find(netlink.get(), peerPort, ownPort);
    // A kernel without this service gives the same answer for every socket.
    if (!peer && !find(netlink.get(), ownPort, 0)) {
        fail(EOPNOTSUPP);
    }
    // The kernel names root as the owner of a closed end.
    const bool isOpen = peer && peer->idiag_state == TCP_ESTABLISHED;
    return isOpen ? std::optional<uid_t>(peer->idiag_uid) : std::nullopt;
}

} // namespace orvel
