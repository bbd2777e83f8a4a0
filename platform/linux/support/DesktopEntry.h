// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// What the desktop reads about programs: files of keys and values.
namespace orvel {

/// The text as the value of a key.
[[nodiscard]] std::string desktopEntryValue(std::string_view text);

/// The value of the key "Exec" that starts the program.
[[nodiscard]] std::string desktopEntryCommand(std::string_view program);

/// Puts the entry in the place of what was there, or nothing when that fails. Makes the folder.
/// Throws `tavrin::PlatformError`.
void writeDesktopEntry(const std::filesystem::path& file, std::string_view entry);

} // namespace orvel
