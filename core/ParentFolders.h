// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace tavrin {

/// Creates the missing folders of the file for this user only. Ignores failures: creating the file
/// then fails, too.
void createParentFolders(const std::filesystem::path& file);

} // namespace tavrin
