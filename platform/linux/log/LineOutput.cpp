// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/LineOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <string>

namespace orvel {

namespace {

constexpr int flags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// The device number of the terminal, or nothing if it is none.
std::optional<unsigned> terminalOf(int descriptor) {
    unsigned device = 0;
    return ioctl(descriptor, TIOCGDEV, &device) == 0 ? std::optional(device) : std::nullopt;
}

/// The same terminal or pipe with flags of its own; closed if that fails.
tavrin::FileDescriptor openAgain(int descriptor) {
    tavrin::FileDescriptor again(
        open(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), flags));
    if (again.isOpen()) {
        return again;
    }
    // After su, the terminal belongs to another user, but the process may open it by this name.
    again = tavrin::FileDescriptor(open("/dev/tty", flags));
    const std::optional<unsigned> terminal = terminalOf(descriptor);
    if (again.isOpen() && terminal && terminal == terminalOf(again.get())) {
        return again;
    }
    return tavrin::FileDescriptor();
}

} // namespace

LineOutput::LineOutput(int descriptor) : descriptor_(descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        kind_ = Kind::Closed;
    } else if (S_ISREG(status.st_mode)) {
        kind_ = Kind::File;
    } else if (S_ISSOCK(status.st_mode)) {
        kind_ = Kind::Socket;
    } else if (reopened_ = openAgain(descriptor); reopened_.isOpen()) {
        kind_ = Kind::Reopened;
    }
}

void LineOutput::write(std::string_view line) {
    rest_.erase(0, writeSome(rest_));
    if (!rest_.empty()) {
        return;
    }
    const std::size_t written = writeSome(line);
    if (written > 0) {
        // Keep the end, so that the next line begins on its own.
        rest_ = line.substr(written);
    }
}

std::size_t LineOutput::writeSome(std::string_view bytes) const {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = writeOnce(bytes.substr(written));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    return written;
}

ssize_t LineOutput::writeOnce(std::string_view bytes) const {
    switch (kind_) {
    case Kind::File:
        return ::write(descriptor_, bytes.data(), bytes.size());
    case Kind::Socket:
        return send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Kind::Reopened:
        return ::write(reopened_.get(), bytes.data(), bytes.size());
    case Kind::Closed:
        return 0;
    case Kind::Borrowed:
        break;
    }
    // A pipe that can be written has room for this much, and a terminal for one byte at least.
    pollfd writable{descriptor_, POLLOUT, 0};
    if (poll(&writable, 1, 0) != 1 || (writable.revents & POLLOUT) == 0) {
        return 0;
    }
    const std::size_t count = isatty(descriptor_) != 0 ? 1 : bytes.size();
    return ::write(descriptor_, bytes.data(), std::min<std::size_t>(count, PIPE_BUF));
}

} // namespace orvel
