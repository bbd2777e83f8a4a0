// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

#include <memory>

namespace orvel::test {

/// This system's way to copy a file.
[[nodiscard]] std::unique_ptr<tavrin::FileCopier> makeRealFileCopier();

} // namespace orvel::test
