// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <sys/types.h>

#include <filesystem>

namespace tavrin {

struct RegularFile {
    FileDescriptor descriptor;
    off_t size = 0;
};

/// Opens a regular file for reading. Throws `PlatformError` if that fails or the path is not a
/// regular file. Never blocks on pipes or devices.
[[nodiscard]] RegularFile openRegularFile(const std::filesystem::path& path);

} // namespace tavrin
