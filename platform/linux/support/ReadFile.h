// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace orvel {

/// The content of a regular file. Throws `tavrin::PlatformError` when it cannot be read or exceeds
/// the limit.
[[nodiscard]] std::string readFile(const std::filesystem::path& path, std::size_t limit);

} // namespace orvel
