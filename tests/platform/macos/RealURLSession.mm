// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealURLSession.h"

#include "platform/macos/network/FoundationURLSession.h"

namespace orvel::test {

std::unique_ptr<URLSession>
makeRealURLSession(const std::vector<std::filesystem::path>& extraCertificates) {
    return std::make_unique<FoundationURLSession>(extraCertificates);
}

} // namespace orvel::test
