// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealBundle.h"

#include "platform/linux/storage/PlistBundle.h"

namespace orvel::test {

std::unique_ptr<Bundle> makeRealBundle(const std::filesystem::path& folder) {
    return std::make_unique<PlistBundle>(folder);
}

std::unique_ptr<Bundle> makeRealBundleOfThisProgram() {
    return makeRealBundle(PlistBundle::defaultFolder());
}

} // namespace orvel::test
