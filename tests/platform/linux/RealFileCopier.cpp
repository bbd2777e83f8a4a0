// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealFileCopier.h"

#include "platform/linux/storage/KernelFileCopier.h"

namespace orvel::test {

std::unique_ptr<tavrin::FileCopier> makeRealFileCopier() {
    return std::make_unique<KernelFileCopier>();
}

} // namespace orvel::test
