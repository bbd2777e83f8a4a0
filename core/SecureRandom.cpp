// SPDX-License-Identifier: Apache-2.0
#include "core/SecureRandom.h"

#include "core/Errors.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>

namespace tavrin {

void fillWithSecureRandom(std::span<std::byte> bytes) {
    // The system's limit for one call.
    constexpr std::size_t longest = 256;
    while (!bytes.empty()) {
        const std::span<std::byte> part = bytes.first(std::min(bytes.size(), longest));
        if (getentropy(part.data(), part.size()) != 0) {
            throw PlatformError::fromErrno(errno, "The system gives no random numbers");
        }
        bytes = bytes.subspan(part.size());
    }
}

} // namespace tavrin
