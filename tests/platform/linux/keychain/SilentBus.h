// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <system_error>

namespace orvel::test {

/// A session bus that accepts connections and never answers.
class SilentBus final {
public:
    SilentBus() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::ranges::copy(path(), std::begin(address.sun_path));
        if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
                0 ||
            listen(socket_.get(), 8) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
    }

    [[nodiscard]] std::string address() const { return "unix:path=" + path(); }

private:
    [[nodiscard]] std::string path() const { return (folder_ / "bus").string(); }

    TemporaryDirectory folder_;
    tavrin::FileDescriptor socket_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

} // namespace orvel::test
