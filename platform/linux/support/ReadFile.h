// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>

namespace orvel {

/// Fills as much of the buffer as the file has, and returns its length. Throws
/// `tavrin::PlatformError`, which begins with that text, when it cannot be read.
[[nodiscard]] std::size_t
readStart(int file, std::span<std::byte> buffer, const std::string& whatFailed);

/// The content of a regular file. Throws `tavrin::PlatformError` when it cannot be read or exceeds
/// the limit.
[[nodiscard]] std::string readFile(const std::filesystem::path& path, std::size_t limit);

} // namespace orvel
