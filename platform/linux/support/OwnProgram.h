// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>

namespace orvel {

/// Where a program was started from.
struct ProgramTraces {
    /// Those of this process. Call early: an update may replace the file.
    [[nodiscard]] static ProgramTraces ofThisProcess();

    std::filesystem::path executable;
    /// "APPIMAGE": the started file.
    std::filesystem::path appImage;
    /// "APPDIR": the mount point of its content.
    std::filesystem::path appDir;
};

/// The AppImage that the program runs from, with links resolved. Only if the executable is inside
/// the mount point: the variables may be inherited from another AppImage, such as a terminal.
[[nodiscard]] std::optional<std::filesystem::path> ownAppImage(const ProgramTraces& traces);

/// The file to start the program again: its AppImage, or else its executable.
[[nodiscard]] std::filesystem::path ownProgram(const ProgramTraces& traces);

} // namespace orvel
