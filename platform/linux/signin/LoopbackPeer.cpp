// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/LoopbackPeer.h"

#include "core/Errors.h"

#include <fmt/format.h>
#include <netinet/in.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

namespace orvel {

namespace {

/// A connection as its line in the table shows it.
struct Connection {
    std::string local;
    std::string remote;
};

/// Looks the connection up in a table of the kernel.
std::optional<uid_t> ownerIn(std::ifstream file, const Connection& connection) {
    constexpr auto established = "01";
    for (std::string line; std::getline(file, line);) {
        if (line.find(connection.local) == std::string::npos) {
            continue;
        }
        std::istringstream fields(line);
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        std::string queues;
        std::string timer;
        std::string retransmissions;
        uid_t owner = 0;
        fields >> number >> local >> remote >> state >> queues >> timer >> retransmissions >> owner;
        // The owner of a closed end is not known: the table shows 0.
        if (fields && local == connection.local && remote == connection.remote &&
            state == established) {
            return owner;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<uid_t> loopbackPeer(std::uint16_t peerPort, std::uint16_t ownPort) {
    const std::uint32_t address = htonl(INADDR_LOOPBACK);
    const auto connection = [peerPort, ownPort](const std::string& host) {
        return Connection{
            fmt::format("{}:{:04X}", host, peerPort), fmt::format("{}:{:04X}", host, ownPort)};
    };
    constexpr auto table = "/proc/net/tcp";
    std::ifstream file(table);
    if (!file) {
        throw tavrin::PlatformError::fromErrno(errno, table);
    }
    if (const auto owner = ownerIn(std::move(file), connection(fmt::format("{:08X}", address)))) {
        return owner;
    }
    // A socket for IPv6 can also connect to 127.0.0.1. A system without IPv6 has no such table.
    const std::string mapped = fmt::format("{:016X}{:08X}{:08X}", 0, htonl(0xFFFF), address);
    return ownerIn(std::ifstream("/proc/net/tcp6"), connection(mapped));
}

} // namespace orvel
