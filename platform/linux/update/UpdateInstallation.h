// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/OwnProgram.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace orvel {

/// How this copy of the application was installed, which decides the form of its updates.
class UpdateInstallation final {
public:
    enum class Kind {
        /// A single file, which an update replaces.
        AppImage,
        /// A Debian package. An update is a package too, which the system's installer opens.
        Package,
    };

    /// Packages are stored in `packageFolder`.
    UpdateInstallation(const ProgramTraces& traces, std::filesystem::path packageFolder);

    [[nodiscard]] Kind kind() const { return kind_; }
    /// The MIME type of updates.
    [[nodiscard]] std::string_view type() const;
    /// The file to replace or create for an update to that version, which must be a parsed one.
    [[nodiscard]] std::filesystem::path place(std::string_view version) const;

private:
    Kind kind_ = Kind::Package;
    std::filesystem::path path_;
};

} // namespace orvel
