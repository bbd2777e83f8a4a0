// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace orvel {

/// Returns the account that holds the other end of an open TCP connection from `peerPort` to
/// `ownPort`, both of 127.0.0.1. No value if that end is closed. This process must listen at
/// `ownPort`. Any thread. Asks the kernel about this one connection, so the time does not depend on
/// the number of connections. Throws `tavrin::PlatformError` if the kernel does not answer; on
/// macOS always.
[[nodiscard]] std::optional<uid_t> loopbackPeer(std::uint16_t peerPort, std::uint16_t ownPort);

} // namespace orvel
