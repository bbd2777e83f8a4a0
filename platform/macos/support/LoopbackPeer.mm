// SPDX-License-Identifier: Apache-2.0
#include "platform/LoopbackPeer.h"

#include "core/Errors.h"

#include <cerrno>

namespace orvel {

std::optional<uid_t> loopbackPeer(std::uint16_t, std::uint16_t) {
    // The system has no documented function that names the owner of another process's socket.
    throw tavrin::PlatformError::fromErrno(
        ENOTSUP, "The account of a connection could not be determined");
}

} // namespace orvel
