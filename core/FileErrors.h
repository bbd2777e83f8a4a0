// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <filesystem>
#include <string_view>

namespace tavrin {

/// A file or a folder could not be written, for the reason of this `errno`. The sentence says
/// `doing`, then the path, the reason and what the user can do.
[[nodiscard]] PlatformError
fileError(int code, std::string_view doing, const std::filesystem::path& path);

} // namespace tavrin
