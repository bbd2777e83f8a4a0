// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/OwnProgram.h"

#include <QByteArray>
#include <QtGlobal>

#include <algorithm>

namespace orvel {

namespace {

std::filesystem::path pathIn(const char* variable) {
    return qgetenv(variable).toStdString();
}

} // namespace

std::filesystem::path ownProgram() {
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path image = pathIn("APPIMAGE");
    const std::filesystem::path mount = pathIn("APPDIR");
    // The variables are inherited: they may be those of the terminal that started us.
    const bool isFromImage =
        image.is_absolute() && mount.is_absolute() &&
        std::mismatch(mount.begin(), mount.end(), executable.begin(), executable.end()).first ==
            mount.end();
    return isFromImage ? image : executable;
}

} // namespace orvel
