// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/Curl.h"

namespace orvel {

const Curl& Curl::get() {
    static const Curl curl{LazyLibrary(ORVEL_CURL_LIBRARY)};
    return curl;
}

} // namespace orvel
