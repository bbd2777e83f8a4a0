// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>

namespace orvel {

/// What tells where a program runs from, of this process or of one that a test makes up.
struct ProgramTraces {
    /// Of this process. To be asked early: an update may put another file in its place.
    [[nodiscard]] static ProgramTraces ofThisProcess();

    std::filesystem::path executable;
    /// "APPIMAGE": the file that was started.
    std::filesystem::path appImage;
    /// "APPDIR": where its content is mounted.
    std::filesystem::path appDir;
};

/// The AppImage that the program runs from, behind all links; none unless the executable is its
/// content: the variables are inherited, and may be those of the terminal that started us.
[[nodiscard]] std::optional<std::filesystem::path> ownAppImage(const ProgramTraces& traces);

/// The file that starts the program again: its AppImage, or else its executable.
[[nodiscard]] std::filesystem::path ownProgram(const ProgramTraces& traces);

} // namespace orvel
