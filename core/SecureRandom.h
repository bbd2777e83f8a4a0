// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>

namespace tavrin {

/// Fills the bytes from the system's random generator, for secrets. Any thread. Throws
/// `PlatformError` if the system gives no random bytes.
void fillWithSecureRandom(std::span<std::byte> bytes);

} // namespace tavrin
