// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/OpenSSL.h"

namespace orvel {

const OpenSSL& OpenSSL::get() {
    // Looking up a symbol in libssl also finds those of libcrypto, its dependency.
    static const OpenSSL openSSL{LazyLibrary(ORVEL_OPENSSL_LIBRARY)};
    return openSSL;
}

} // namespace orvel
