// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

#include <memory>

namespace orvel::test {

[[nodiscard]] std::unique_ptr<tavrin::FileCopier> makeRealFileCopier();

} // namespace orvel::test
