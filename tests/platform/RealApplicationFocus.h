// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ApplicationFocus.h"

#include <memory>

namespace orvel::test {

[[nodiscard]] std::unique_ptr<ApplicationFocus> makeRealApplicationFocus();

} // namespace orvel::test
