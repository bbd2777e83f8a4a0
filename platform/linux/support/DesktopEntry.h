// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct _GKeyFile; // NOLINT(bugprone-reserved-identifier): the name that GLib chose

/// Desktop entries: key-value files that describe programs.
namespace orvel {

struct FreeKeyFile {
    void operator()(_GKeyFile* keyFile) const;
};
using KeyFile = std::unique_ptr<_GKeyFile, FreeKeyFile>;

/// Null for a file that is no desktop entry. Throws `tavrin::PlatformError` when it cannot be read.
[[nodiscard]] KeyFile readDesktopEntry(const std::filesystem::path& file);

/// Null for a text that is no desktop entry.
[[nodiscard]] KeyFile parseDesktopEntry(std::string_view entry);

/// The value of the key in the group "Desktop Entry".
[[nodiscard]] std::optional<std::string> valueIn(const KeyFile& entry, const char* key);

/// Throws `tavrin::PlatformError` unless desktops read the program's path as it is: it must be
/// UTF-8 without control characters.
void checkProgramPath(const std::filesystem::path& program);

/// Escapes the text as a value.
[[nodiscard]] std::string desktopEntryValue(std::string_view text);

/// The "Exec" value that starts the program.
[[nodiscard]] std::string desktopEntryCommand(std::string_view program);

/// Writes the file atomically and creates the folder, both for this user only. Replaces a file that
/// belongs to another user, or that others may write. Throws `tavrin::PlatformError`.
void writeDesktopEntry(const std::filesystem::path& file, std::string_view entry);

} // namespace orvel
