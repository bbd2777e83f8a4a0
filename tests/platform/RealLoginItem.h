// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"

#include <filesystem>
#include <memory>

namespace orvel::test {

/// This system's, of an application that is none. What it writes goes into the folder.
[[nodiscard]] std::unique_ptr<LoginItem> makeRealLoginItem(const std::filesystem::path& folder);

} // namespace orvel::test
