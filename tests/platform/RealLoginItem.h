// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/LoginItem.h"

#include <filesystem>
#include <memory>

namespace orvel::test {

/// The login item of a made-up application. Writes to the folder only.
[[nodiscard]] std::unique_ptr<LoginItem> makeRealLoginItem(const std::filesystem::path& folder);

} // namespace orvel::test
