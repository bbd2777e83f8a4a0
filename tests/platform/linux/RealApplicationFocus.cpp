// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealApplicationFocus.h"

#include "platform/linux/desktop/XdgApplicationFocus.h"

namespace orvel::test {

std::unique_ptr<ApplicationFocus> makeRealApplicationFocus() {
    return std::make_unique<XdgApplicationFocus>();
}

} // namespace orvel::test
