// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// Desktop entries: key-value files that describe programs.
namespace orvel {

/// Escapes the text as a value.
[[nodiscard]] std::string desktopEntryValue(std::string_view text);

/// The "Exec" value that starts the program.
[[nodiscard]] std::string desktopEntryCommand(std::string_view program);

/// Writes the file atomically and creates the folder. Throws `tavrin::PlatformError`.
void writeDesktopEntry(const std::filesystem::path& file, std::string_view entry);

} // namespace orvel
