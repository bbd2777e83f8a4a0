// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealApplicationFocus.h"

#include "platform/macos/desktop/AppKitApplicationFocus.h"

namespace orvel::test {

std::unique_ptr<ApplicationFocus> makeRealApplicationFocus() {
    return std::make_unique<AppKitApplicationFocus>();
}

} // namespace orvel::test
