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

/// Opens a regular file for reading. Throws `PlatformError` when that fails or something else is in
/// its place, for which it never waits.
[[nodiscard]] RegularFile openRegularFile(const std::filesystem::path& path);

} // namespace tavrin
