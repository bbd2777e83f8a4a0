// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/OwnProgram.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace orvel {

/// How this copy of the application came onto the system, and so in which form its updates come.
class UpdateInstallation final {
public:
    enum class Kind {
        /// One file, which an update replaces.
        AppImage,
        /// A package of the system. An update is another one, for the system's installer to open.
        Package,
    };

    /// Packages go to that folder.
    UpdateInstallation(const ProgramTraces& traces, std::filesystem::path packageFolder);

    [[nodiscard]] Kind kind() const { return kind_; }
    /// The MIME type of updates.
    [[nodiscard]] std::string_view type() const;
    /// The file to replace, or to make, for an update of that version, which must be one.
    [[nodiscard]] std::filesystem::path place(std::string_view version) const;

private:
    Kind kind_ = Kind::Package;
    std::filesystem::path path_;
};

} // namespace orvel
