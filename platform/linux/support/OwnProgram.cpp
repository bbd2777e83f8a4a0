// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/support/OwnProgram.h"

#include <QByteArray>
#include <QtGlobal>

#include <algorithm>
#include <system_error>

namespace orvel {

namespace {

std::filesystem::path pathIn(const char* variable) {
    return qgetenv(variable).toStdString();
}

bool isBelow(const std::filesystem::path& path, const std::filesystem::path& folder) {
    const auto [end, rest] = std::ranges::mismatch(folder, path);
    return end == folder.end() && rest != path.end();
}

} // namespace

ProgramTraces ProgramTraces::ofThisProcess() {
    return {std::filesystem::read_symlink("/proc/self/exe"), pathIn("APPIMAGE"), pathIn("APPDIR")};
}

std::optional<std::filesystem::path> ownAppImage(const ProgramTraces& traces) {
    if (!traces.appImage.is_absolute() || !traces.appDir.is_absolute()) {
        return std::nullopt;
    }
    std::error_code error;
    std::filesystem::path appImage = std::filesystem::canonical(traces.appImage, error);
    if (error || !std::filesystem::is_regular_file(appImage, error)) {
        return std::nullopt;
    }
    const std::filesystem::path appDir = std::filesystem::canonical(traces.appDir, error);
    if (error || !isBelow(traces.executable, appDir)) {
        return std::nullopt;
    }
    return appImage;
}

std::filesystem::path ownProgram(const ProgramTraces& traces) {
    return ownAppImage(traces).value_or(traces.executable);
}

} // namespace orvel
