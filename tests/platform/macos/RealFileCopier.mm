// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealFileCopier.h"

#include "platform/macos/storage/CloningFileCopier.h"

namespace orvel::test {

std::unique_ptr<tavrin::FileCopier> makeRealFileCopier() {
    return std::make_unique<CloningFileCopier>();
}

} // namespace orvel::test
