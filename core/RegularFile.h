// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <filesystem>
#include <string_view>

namespace tavrin {

struct RegularFile {
    FileDescriptor descriptor;
    off_t size = 0;
};

/// Opens a regular file for reading. Throws `PlatformError` if that fails or the path is not a
/// regular file. Never blocks on pipes or devices.
[[nodiscard]] RegularFile openRegularFile(const std::filesystem::path& path);

/// Opens a regular file of this user, with these flags of `open()`, and lets no other user read or
/// write it (mode 0600). Creates it if needed, but not its folder. Follows no link, and does not
/// truncate. Throws `PlatformError`, whose text begins with `doing` and the path, if that fails or
/// if the path is something that another user could have put there: another user's file, a second
/// name of a file, a pipe.
[[nodiscard]] FileDescriptor
openOwnFile(const std::filesystem::path& path, int flags, std::string_view doing);

/// Throws `PlatformError`, whose text begins with `doing`, if the path is a file or a link of
/// another user, or leads to a file of another user. Files of root are accepted.
void refuseFileOfOthers(const std::filesystem::path& path, std::string_view doing);

} // namespace tavrin
