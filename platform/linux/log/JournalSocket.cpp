// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/JournalSocket.h"

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace orvel {

namespace {

/// Uses the protocol's form for values with line breaks: name, 64-bit little-endian length, value.
void append(std::string& entry, const JournalSocket::Field& field) {
    entry.append(field.name).append(1, '\n');
    std::uint64_t length = field.value.size();
    for (int byte = 0; byte < 8; ++byte) {
        entry.push_back(static_cast<char>(length & 0xFFU));
        length >>= 8U;
    }
    entry.append(field.value).append(1, '\n');
}

} // namespace

std::filesystem::path JournalSocket::systemPath() {
    return "/run/systemd/journal/socket";
}

JournalSocket::JournalSocket(const std::filesystem::path& path) {
    const std::string& name = path.native();
    // The address includes the terminating zero; longer paths are invalid.
    if (name.size() < sizeof address_.sun_path) {
        address_.sun_family = AF_UNIX;
        name.copy(&address_.sun_path[0], name.size());
        socket_ = tavrin::FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    }
}

void JournalSocket::send(std::initializer_list<Field> fields) const {
    if (!socket_.isOpen()) {
        return;
    }
    std::string entry;
    for (const Field& field : fields) {
        append(entry, field);
    }
    // Not connected, because the journal may start later or restart.
    std::ignore = sendto(
        socket_.get(),
        entry.data(),
        entry.size(),
        MSG_DONTWAIT | MSG_NOSIGNAL,
        reinterpret_cast<const sockaddr*>(&address_),
        sizeof address_);
}

} // namespace orvel
