// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <filesystem>
#include <optional>

namespace tavrin {

/// Creates the missing folders of the file for this user only. Returns why one could not be
/// created. Creating the file then fails, too, but with a less clear error.
std::optional<PlatformError> createParentFolders(const std::filesystem::path& file);

} // namespace tavrin
