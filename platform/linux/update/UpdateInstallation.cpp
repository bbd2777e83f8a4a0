// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateInstallation.h"

#include <utility>

namespace orvel {

UpdateInstallation::UpdateInstallation(
    const ProgramTraces& traces, std::filesystem::path packageFolder) {
    // The file itself is to be replaced, not a link to it.
    std::optional<std::filesystem::path> appImage = ownAppImage(traces);
    kind_ = appImage ? Kind::AppImage : Kind::Package;
    path_ = appImage ? *std::move(appImage) : std::move(packageFolder);
}

std::string_view UpdateInstallation::type() const {
    return kind_ == Kind::AppImage ? "application/vnd.appimage"
                                   : "application/vnd.debian.binary-package";
}

std::filesystem::path UpdateInstallation::place(std::string_view version) const {
    return kind_ == Kind::AppImage ? path_
                                   : path_ / ("orvel-agent-" + std::string(version) + ".deb");
}

} // namespace orvel
