// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealURLSession.h"

#include "platform/linux/network/CurlURLSession.h"

namespace orvel::test {

std::unique_ptr<URLSession>
makeRealURLSession(const std::vector<std::filesystem::path>& extraCertificates) {
    return std::make_unique<CurlURLSession>(CurlURLSession::Trust{extraCertificates, {}});
}

} // namespace orvel::test
