// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealBundle.h"

#include "platform/macos/storage/FoundationBundle.h"

namespace orvel::test {

std::unique_ptr<Bundle> makeRealBundle(const std::filesystem::path& folder) {
    return std::make_unique<FoundationBundle>(folder);
}

std::unique_ptr<Bundle> makeRealBundleOfThisProgram() {
    return FoundationBundle::ofThisProgram();
}

} // namespace orvel::test
