// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Interface.h"

#include <filesystem>
#include <memory>

namespace tavrin {

/// Locks the file, which it creates if needed, with its folders, for this user only. The lock ends
/// with the returned object and with the process. The file stays: removing it would let two
/// processes lock different files of that name.
///
/// Returns null while another object or process holds the lock. Throws `PlatformError` if the file
/// cannot be created or is not this user's alone (`openOwnFile`).
[[nodiscard]] std::unique_ptr<Interface> tryLockFile(const std::filesystem::path& file);

} // namespace tavrin
