// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace orvel {

/// The file that starts this program again: the AppImage that it runs from, or else its executable.
/// To be asked early: an update may put another file in the executable's place.
[[nodiscard]] std::filesystem::path ownProgram();

} // namespace orvel
